#include "cli/card_choice.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <set>

#include "base/safe_text.h"
#include "base/text.h"

namespace {

using nlohmann::ordered_json;

constexpr size_t shown_digits = 8;
constexpr size_t most_listed = 10;

std::optional<uint64_t> number_in(const std::string& name) {
    uint64_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// A number of a card that is gone must not become another card, whose file's name happens to begin so.
bool can_be_file(const std::string& name) {
    return !name.empty() && (!number_in(name) || name.size() >= shown_digits);
}

bool means(const std::string& name, const ordered_json& card) {
    const std::string wanted = base::folded(name);
    const auto has_name = [&](const ordered_json& contact) {
        return base::folded(contact.at("name").get<std::string>()) == wanted;
    };
    return (can_be_file(name) && card.at("file").get<std::string>().starts_with(wanted)) ||
           std::ranges::any_of(card.at("contacts"), has_name);
}

std::string several(const std::string& name, const std::vector<ordered_json>& cards) {
    std::vector<std::string> shown;
    shown.reserve(cards.size());
    for (const ordered_json& card : cards) {
        shown.push_back(fmt::format("{} from {}", short_name(card), card.at("sender").get<std::string>()));
    }
    const bool is_cut = shown.size() > most_listed;
    shown.resize(std::min(shown.size(), most_listed));
    return fmt::format("'{}' can be {} cards: {}{}; give a number", name, cards.size(), fmt::join(shown, ", "),
                       is_cut ? ", …" : "");
}

/// Reads the list of cards when a name needs it, and only once.
class chooser_t {
  public:
    explicit chooser_t(received_cards_t& inbox) : inbox_(inbox) {}

    void add(const std::string& name) {
        const auto number = number_in(name);
        if (number && add_number(*number)) {
            return;
        }
        if (!all_) {
            all_ = all_cards(inbox_);
        }
        std::vector<ordered_json> matches;
        std::ranges::copy_if(all_->cards, std::back_inserter(matches),
                             [&](const ordered_json& card) { return means(name, card); });
        if (matches.size() == 1) {
            add_card(matches.front());
        } else {
            choice_.errors.push_back(matches.empty() ? none(name, number.has_value()) : several(name, matches));
        }
    }

    card_choice_t finish() {
        // What is missing may be what could not be read.
        if (all_ && !choice_.errors.empty()) {
            choice_.errors.insert(choice_.errors.end(), all_->errors.begin(), all_->errors.end());
        }
        return std::move(choice_);
    }

  private:
    bool add_number(uint64_t number) {
        bool found = false;
        if (number != 0) {
            // What stands in the way of one card is told with the names, if it is not found among them, too.
            inbox_.list(number - 1, [&](const ordered_json& card) {
                found = card.at("number") == number;
                if (found) {
                    add_card(card);
                }
                return false;
            });
        }
        return found;
    }

    void add_card(const ordered_json& card) {
        if (files_.insert(card.at("file")).second) {
            choice_.cards.push_back(card);
        }
    }

    std::string none(const std::string& name, bool is_number) const {
        const std::string why =
            inbox_.problem().empty() ? "" : fmt::format(" (they have no numbers: {})", inbox_.problem());
        return is_number ? fmt::format("there is no card {}{}; see: zpd inbox", name, why)
                         : fmt::format("no card has the name '{}', nor a file that begins so; see: zpd inbox", name);
    }

    received_cards_t& inbox_;
    std::optional<card_choice_t> all_;
    card_choice_t choice_;
    std::set<std::string> files_;
};

}  // namespace

card_choice_t choose_cards(received_cards_t& inbox, const std::vector<std::string>& names) {
    chooser_t chooser(inbox);
    for (const std::string& name : names) {
        chooser.add(name);
    }
    return chooser.finish();
}

card_choice_t all_cards(received_cards_t& inbox) {
    card_choice_t all;
    all.errors = inbox.list(0, [&all](const ordered_json& card) {
        all.cards.push_back(card);
        return true;
    });
    return all;
}

std::string short_name(const ordered_json& card) {
    return card.at("number").is_null() ? card.at("file").get<std::string>().substr(0, shown_digits)
                                       : card.at("number").dump();
}
