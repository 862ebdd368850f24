/// zpd inbox: the received cards, of a service or of a home without one.
#include "base/safe_text.h"
#include "cli/inbox.h"
#include "cli/output.h"
#include "cli/service_connection.h"
#include "radio/incomplete_messages.h"

namespace {

using nlohmann::ordered_json;
using inbox_command_t = int (*)(const context_t&, const inbox_options_t&, received_cards_t&);

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

/// Where the cards are: in a home that was named; else with the service of the device. Without one: in the usual home,
/// unless it was that device that was asked for.
int on_inbox(const context_t& context, const inbox_options_t& options, inbox_command_t use) {
    if (!options.home_named) {
        auto service = connect_service(context.device);
        if (service) {
            return use(context, options, *cards_of_service(std::move(*service), shown_device(context.device)));
        }
        // A service of the system that is not for this user does not stand before the user's own home.
        const client::obstacle_t obstacle = service.failure().obstacle;
        const bool is_away = obstacle == client::obstacle_t::no_service ||
                             (obstacle == client::obstacle_t::access && std::filesystem::exists(context.home));
        if (context.device != context.usual_device || is_fleet(context.device) || !is_away) {
            return fail(service.failure().text);
        }
    }
    return on_home(context, [&] { return use(context, options, *cards_of_home(context.home)); })();
}

/// A command below `inbox`, or that itself.
class inbox_command_line_t {
  public:
    inbox_command_line_t(CLI::App* command, context_t& context, std::shared_ptr<inbox_options_t> options)
        : command_(command), context_(context), options_(std::move(options)) {
        command
            ->add_option("--home", context.home,
                         "a phone's home folder (default: the service's, else " + context.home.native() + ")")
            ->type_name("DIR")
            ->check(not_empty("the home folder's name"));
        add_device_option(command, context);
        add_json_option(command, context);
    }

    inbox_command_line_t& follow() {
        command_->add_flag("--follow", options_->follow, "go on with those that come, until interrupted");
        return *this;
    }
    inbox_command_line_t& cards() {
        command_->add_option("card", options_->cards, "a card's number, its file's first digits, or a contact's name")
            ->type_name("NUMBER|NAME");
        command_->add_flag("--all", options_->all, "all cards");
        return *this;
    }
    inbox_command_line_t& flag(const std::string& name, bool inbox_options_t::*value, const std::string& help) {
        command_->add_flag(name, (*options_).*value, help);
        return *this;
    }
    template <typename value_t>
    inbox_command_line_t& option(const std::string& name, value_t inbox_options_t::*value, const std::string& type,
                                 const std::string& help) {
        command_->add_option(name, (*options_).*value, help)->type_name(type)->check(not_empty("the name"));
        return *this;
    }
    void runs(inbox_command_t use) {
        command_->callback([&context = context_, options = options_, use, command = command_] {
            options->home_named |= command->count("--home") > 0;
            if (!context.run) {  // `inbox` itself comes after the command below it
                context.run = [&context, options, use] { return on_inbox(context, *options, use); };
            }
        });
    }

  private:
    CLI::App* command_;
    context_t& context_;
    std::shared_ptr<inbox_options_t> options_;
};

void add_incomplete_command(CLI::App* inbox, context_t& context) {
    auto* command = inbox->add_subcommand(
        "incomplete", "List the messages of which datagrams are missing; they are dropped after journal-age");
    add_home_option(command, context);
    add_json_option(command, context);
    command->callback([&context] { context.run = on_home(context, [&context] { return list_incomplete(context); }); });
}

}  // namespace

int tell_errors(const std::vector<std::string>& errors) {
    for (const std::string& error : errors) {
        fail(error);
    }
    return errors.empty() ? exit_done : exit_failed;
}

std::vector<ordered_json> chosen_cards(const inbox_options_t& options, received_cards_t& inbox, int& status) {
    if (options.all == !options.cards.empty()) {
        status = fail_usage(options.all ? "either cards or --all, not both"
                                        : "which cards? their numbers, names, or --all; see: zpd inbox");
        return {};
    }
    card_choice_t choice = options.all ? all_cards(inbox) : choose_cards(inbox, options.cards);
    status = tell_errors(choice.errors);
    if (!options.all && status != exit_done) {
        return {};
    }
    if (choice.cards.empty()) {
        progress_t(true).note(base::escaped("no cards " + inbox.place()));
    }
    return std::move(choice.cards);
}

void add_inbox_commands(CLI::App& app, context_t& context) {
    auto* inbox = app.add_subcommand("inbox", "List, show, export, open or remove received cards");
    inbox->require_subcommand(0, 1);
    inbox->footer(
        "A card is named by its number, by the first digits of its file's name (eight, when they look\n"
        "like a number), or by a contact's whole name. A number stays the card's own, and is never\n"
        "given to another. Bare 'zpd inbox' lists. The cards are those of the service that runs on\n"
        "the device, else those in the home.\n\nExamples:\n"
        "  zpd inbox\n"
        "  zpd inbox show 3\n"
        "  zpd inbox open 'ann placeholder'\n"
        "  zpd inbox export --all -d ~/cards   writes 'Ann Placeholder.vcf', and so on\n"
        "  zpd inbox export 3 -o -             a card's own octets\n"
        "  zpd inbox remove 3 4\n"
        "  zpd inbox --follow --json");
    const auto options = std::make_shared<inbox_options_t>();
    const auto add = [&](const char* name, const char* help) {
        return inbox_command_line_t(inbox->add_subcommand(name, help), context, options);
    };
    inbox_command_line_t(inbox, context, options).follow().runs(list_cards);
    add("list", "List the received cards in the order of arrival").follow().runs(list_cards);
    add("show", "Show what is on cards")
        .cards()
        .flag("--raw", &inbox_options_t::raw, "the card's own octets, as text")
        .runs(show_cards);
    add("export", "Write cards into files")
        .cards()
        .option("-d,--dir", &inbox_options_t::directory, "DIR", "the folder for the files (default: the current one)")
        .option("-o,--output", &inbox_options_t::output, "FILE", "the file for a single card; - for standard output")
        .flag("--force", &inbox_options_t::overwrite, "overwrite files")
        .runs(export_cards);
    add("open", "Open cards in the program that the desktop has for them").cards().runs(open_cards);
    add("remove", "Remove cards")
        .cards()
        .flag("--yes", &inbox_options_t::sure, "do not ask before all are removed")
        .runs(remove_cards);
    add_incomplete_command(inbox, context);
}
