/// zpd inbox list, and zpd inbox remove.
#include <set>

#include "base/safe_text.h"
#include "base/text.h"
#include "cli/inbox.h"
#include "cli/output.h"
#include "cli/question.h"

namespace {

using nlohmann::ordered_json;

constexpr int look_interval = 300;  // ms
constexpr size_t name_columns = 26;
constexpr size_t number_columns = 16;

/// In so many columns; `show` tells the whole.
std::string cell(const ordered_json& value, size_t width) {
    const std::string text = value.is_string() ? base::escaped(value.get<std::string>()) : std::string();
    size_t columns = 0;
    size_t cut = 0;  // where the last column begins
    size_t end = 0;
    for (; end < text.size() && columns < width; ++columns) {
        cut = end;
        end += base::first_code_point(std::string_view(text).substr(end)).length;
    }
    return fmt::format("{:<{}}", end < text.size() ? text.substr(0, cut) + "…" : text, width);
}

std::string card_line(const ordered_json& card) {
    const ordered_json& contacts = card.at("contacts");
    const ordered_json first = contacts.empty() ? ordered_json::object() : contacts.front();
    const std::string name = first.value("name", std::string());
    const std::string more = contacts.size() > 1 ? fmt::format(" +{}", contacts.size() - 1) : std::string();
    return fmt::format("{:>4}  {}{}  {}  {}  {}  {}", short_name(card),
                       cell(name.empty() ? "(no name)" : name, name_columns - more.size()), more,
                       cell(first.value("organisation", ordered_json()), name_columns),
                       cell(first.value("telephone", ordered_json()), number_columns),
                       cell(card.at("sender"), number_columns), local_time(card.at("received")));
}

void say_card(const context_t& context, const ordered_json& card) {
    if (context.json) {
        say_json(card);
    } else {
        say_line(card_line(card));
    }
}

void tell_problem(const received_cards_t& inbox) {
    if (!inbox.problem().empty()) {
        fail("cards without numbers: " + inbox.problem());
    }
}

int follow_cards(const context_t& context, received_cards_t& inbox) {
    uint64_t after = 0;
    std::set<std::string> seen;  // those without a number
    std::vector<std::string> told;
    do {
        if (!inbox.has_changed()) {
            continue;
        }
        const auto errors = inbox.list(after, [&](const ordered_json& card) {
            if (!card.at("number").is_null()) {
                after = card.at("number");
            } else if (!seen.insert(card.at("file")).second) {
                return true;
            }
            say_card(context, card);
            return true;
        });
        if (errors != told) {
            tell_errors(errors);
            told = errors;
        }
    } while (wait_while_read(look_interval));
    return exit_done;
}

/// Whether all cards may be removed: said so before, or when asked. Else told.
int ask_to_remove(size_t count) {
    if (!can_ask()) {
        return fail_usage("--all removes every card, and nobody is there to be asked; add --yes");
    }
    return ask(fmt::format("remove {}?", counted(count, "card"))) ? exit_done : fail("nothing was removed");
}

}  // namespace

int list_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox) {
    if (options.follow) {
        return follow_cards(context, inbox);
    }
    ordered_json cards = ordered_json::array();
    bool none = true;
    const auto errors = inbox.list(0, [&](const ordered_json& card) {
        none = false;
        if (context.json) {
            cards.push_back(card);
        } else {
            say_line(card_line(card));
        }
        return true;
    });
    if (context.json) {
        say_json({{"cards", cards}, {"more", false}});
    } else if (none && errors.empty()) {
        progress_t(true).note(base::escaped("no cards " + inbox.place()));
    }
    tell_problem(inbox);
    return tell_errors(errors);
}

int remove_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox) {
    int status = exit_done;
    const auto cards = chosen_cards(options, inbox, status);
    if (options.all && !options.sure && !cards.empty()) {
        if (const int refused = ask_to_remove(cards.size()); refused != exit_done) {
            return refused;
        }
    }
    ordered_json removed = ordered_json::array();
    for (const ordered_json& card : cards) {
        if (const auto done = inbox.remove(card); done) {
            removed.push_back(card);
        } else {
            status = fail(done.failure().text);
        }
    }
    if (context.json && status != exit_usage) {
        say_json({{"removed", removed}});
    }
    return status;
}
