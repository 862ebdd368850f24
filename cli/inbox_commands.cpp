/// zpd inbox: the received cards, read from the phone's home; no service needs to run.
#include <ctime>
#include <fstream>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "radio/incomplete_messages.h"
#include "service/card_json.h"
#include "service/inbox_folder.h"
#include "service/vcard.h"

namespace {

using nlohmann::ordered_json;

constexpr size_t shown_name_digits = 8;

std::string local_time(uint64_t since_1970) {
    const auto time = static_cast<time_t>(since_1970);
    tm parts{};
    char text[32];
    if (localtime_r(&time, &parts) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(since_1970);
    }
    return text;
}

ordered_json as_json(const inbox_folder_t& inbox, const stored_card_t& card) {
    return card_json(std::nullopt, inbox.file(card.name), card);
}

std::string name_on(std::string_view octets) {
    const auto contacts = contacts_of(octets);
    return contacts.empty() ? std::string() : contacts.front().name;
}

int tell(const std::vector<std::string>& errors) {
    for (const std::string& error : errors) {
        fail(error);
    }
    return errors.empty() ? exit_done : exit_failed;
}

void tell_if_none(const inbox_folder_t& inbox, bool none) {
    if (none) {
        progress_t(true).note(base::escaped(fmt::format("no cards in {}", inbox.path().native())));
    }
}

int list(const context_t& context) {
    const inbox_folder_t inbox(context.home);
    const auto [cards, errors] = inbox.cards();
    const int status = tell(errors);
    if (context.json) {
        ordered_json list = ordered_json::array();
        for (const stored_card_t& card : cards) {
            list.push_back(as_json(inbox, card));
        }
        say_json({{"cards", list}});
        return status;
    }
    for (const stored_card_t& card : cards) {
        say("{}  {}  {:<16} {:>6}  {}", card.name.substr(0, shown_name_digits), local_time(card.time),
            base::escaped(card.sender), card.octets.size(), base::escaped(name_on(card.octets)));
    }
    tell_if_none(inbox, cards.empty() && errors.empty());
    return status;
}

/// The card whose name begins with `prefix`, or none, which it tells.
std::optional<stored_card_t> find_card(const inbox_folder_t& inbox, const std::string& prefix) {
    std::string error;
    const auto name = inbox.find(prefix, &error);
    if (!name) {
        fail(error);
        return std::nullopt;
    }
    auto card = inbox.load(*name, &error);
    if (!card) {
        fail(error);
    }
    return card;
}

int show(const context_t& context, const std::string& prefix) {
    const inbox_folder_t inbox(context.home);
    const auto card = find_card(inbox, prefix);
    if (!card) {
        return exit_failed;
    }
    if (context.json) {
        ordered_json value = as_json(inbox, *card);
        value["card"] = card->octets;
        say_json(value);
        return exit_done;
    }
    say("From: {}\nReceived: {}\nName: {}\n", base::escaped(card->sender), local_time(card->time), card->name);
    say_line(base::escaped_lines(card->octets));
    return exit_done;
}

int refuse_json() {
    fail("--json goes with list, show and incomplete");
    return exit_usage;
}

int export_all(const context_t& context, const std::filesystem::path& directory) {
    if (context.json) {
        return refuse_json();
    }
    const inbox_folder_t inbox(context.home);
    std::error_code failed;
    std::filesystem::create_directories(directory, failed);
    if (failed) {
        return fail(fmt::format("cannot make the folder {}: {}", directory.native(), failed.message()));
    }
    const auto [cards, errors] = inbox.cards();
    for (const stored_card_t& card : cards) {
        const std::filesystem::path file = directory / (card.name + ".vcf");
        std::ofstream stream(file, std::ios::binary);
        stream << card.octets;
        stream.close();
        if (!stream) {
            return fail(fmt::format("cannot write {}", file.native()));
        }
        say_line(file.native());
    }
    tell_if_none(inbox, cards.empty() && errors.empty());
    return tell(errors);
}

int remove(const context_t& context, const std::string& prefix) {
    if (context.json) {
        return refuse_json();
    }
    const inbox_folder_t inbox(context.home);
    std::string error;
    const auto name = inbox.find(prefix, &error);
    if (!name) {
        return fail(error);
    }
    std::error_code failed;
    std::filesystem::remove(inbox.file(*name), failed);
    if (failed) {
        return fail(fmt::format("cannot remove {}: {}", inbox.file(*name).native(), failed.message()));
    }
    return exit_done;
}

int list_incomplete(const context_t& context) {
    std::string error;
    const auto messages = radio::incomplete_messages(context.home, &error);
    if (!error.empty()) {
        return fail(error);
    }
    ordered_json list = ordered_json::array();
    for (const radio::incomplete_message_t& message : messages) {
        const auto since = static_cast<uint64_t>(message.since);
        if (context.json) {
            list.push_back({{"sender", message.sender},
                            {"since", since},
                            {"received", message.received},
                            {"datagrams", message.datagrams}});
        } else {
            say("{}  {:<16} {} of {} datagrams", local_time(since), base::escaped(message.sender), message.received,
                message.datagrams);
        }
    }
    if (context.json) {
        say_json({{"incomplete", list}});
    } else if (messages.empty()) {
        progress_t(true).note(base::escaped(fmt::format("no incomplete messages in {}", context.home.native())));
    }
    return exit_done;
}

/// A command below `inbox` with one argument.
template <typename argument_t>
CLI::App* add_below(CLI::App* inbox, context_t& context, const std::string& name, const std::string& help,
                    const std::string& argument_name, int (*use)(const context_t&, const argument_t&)) {
    auto* command = inbox->add_subcommand(name, help);
    const auto argument = std::make_shared<argument_t>();
    command->add_option(argument_name, *argument)->type_name("")->required();
    add_home_option(command, context);
    command->callback([&context, argument, use] {
        context.run = on_home(context, [&context, argument, use] { return use(context, *argument); });
    });
    return command;
}

}  // namespace

void add_inbox_commands(CLI::App& app, context_t& context) {
    auto* inbox = app.add_subcommand("inbox", "List, show, export or remove received cards");
    inbox->require_subcommand(0, 1);
    add_home_option(inbox, context);
    add_json_option(inbox, context);
    inbox->footer(
        "NAME is a stored card's name, or its first few digits. Bare 'zpd inbox' lists.\n"
        "--json goes with list, show and incomplete.\n\nExamples:\n"
        "  zpd inbox\n"
        "  zpd inbox show 4f0a\n"
        "  zpd inbox export ~/cards     writes DIR/NAME.vcf, octet for octet\n"
        "  zpd inbox remove 4f0a");
    auto* list_command = inbox->add_subcommand("list", "List the received cards, oldest first");
    add_home_option(list_command, context);
    add_json_option(list_command, context);
    list_command->callback([&context] { context.run = on_home(context, [&context] { return list(context); }); });
    auto* incomplete_command = inbox->add_subcommand(
        "incomplete", "List the messages of which datagrams are missing; they are dropped after journal-age");
    add_home_option(incomplete_command, context);
    add_json_option(incomplete_command, context);
    incomplete_command->callback(
        [&context] { context.run = on_home(context, [&context] { return list_incomplete(context); }); });
    auto* show_command = add_below<std::string>(inbox, context, "show", "Show a card's text", "NAME", show);
    add_json_option(show_command, context);
    add_below<std::filesystem::path>(inbox, context, "export", "Write all cards into a folder", "DIR", export_all);
    add_below<std::string>(inbox, context, "remove", "Remove a card", "NAME", remove);
    inbox->callback([&context] {
        if (!context.run) {
            context.run = on_home(context, [&context] { return list(context); });
        }
    });
}
