/// zpd outbox: what was handed in to be sent.
#include <array>
#include <chrono>
#include <ctime>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/outbox_arguments.h"
#include "cli/outbox_message.h"
#include "cli/output.h"

namespace {

using client::service_t;
using nlohmann::ordered_json;

struct outbox_options_t {
    std::vector<uint64_t> ids;
    bool all = false;
    expiry_t expiry;
};

std::string after(std::string_view separator, const std::string& text) {
    return text.empty() ? text : std::string(separator) + text;
}

void say_messages(const std::vector<outbox_card_t>& messages) {
    ordered_json list = ordered_json::array();
    for (const outbox_card_t& message : messages) {
        list.push_back(message.json);
    }
    say_json({{"messages", list}});
}

int list(service_t& service, bool all, bool json) {
    const auto messages = list_outbox(service, all);
    if (!messages) {
        return fail(messages.failure().text);
    }
    if (json) {
        say_messages(*messages);
        return exit_done;
    }
    for (const outbox_card_t& message : *messages) {
        say("{:5}  {:<10} {:<16} {}, {}, {} ago{}", message.id, message.state, message.number, message.name(),
            message.progress(), message.age(), after("; ", message.circumstances()));
    }
    return exit_done;
}

void say_local_time(const char* subject, const outbox_card_t& message, const char* member) {
    const auto found = message.json.find(member);
    if (found == message.json.end() || !found->is_number()) {
        return;
    }
    const auto time = found->get<std::time_t>();
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    say("{:<11}{}", subject, text.data());
}

void say_message(const outbox_card_t& message) {
    say("message {}: {}{}", message.id, message.state, after("; ", message.circumstances()));
    say("{:<11}{}", "to", message.number);
    say("{:<11}{}, {}, {}", "card", message.name(), base::escaped(message.file),
        counted(message.json.value("octets", uint64_t{0}), "octet"));
    say("{:<11}{}", "datagrams", message.progress());
    say_local_time("handed in", message, "handed_in");
    say_local_time("expires", message, "expires");
    say_local_time("changed", message, "changed");
}

/// Asks for each message, and tells what came of it: false from `tell`, and a refusal, are failures.
int for_each_message(const std::vector<uint64_t>& ids, bool json,
                     const std::function<client::answer_t<outbox_card_t>(uint64_t)>& ask,
                     const std::function<bool(const outbox_card_t&)>& tell) {
    bool all_done = true;
    std::vector<outbox_card_t> messages;
    for (const uint64_t id : ids) {
        const auto message = ask(id);
        if (!message) {
            fail(message.failure().text);
            all_done = false;
        } else if (messages.push_back(*message); !json) {
            all_done = tell(*message) && all_done;
        }
    }
    if (json) {
        say_messages(messages);
    }
    return all_done ? exit_done : exit_failed;
}

int show(service_t& service, const std::vector<uint64_t>& ids, bool json) {
    const auto message_of = [&](uint64_t id) { return read_message(service.outbox_watch(id, 0, 0)); };
    return for_each_message(ids, json, message_of, [](const outbox_card_t& message) {
        say_message(message);
        return true;
    });
}

/// Until the driver has none of it any more, which takes as long as the modem owes a result; or some seconds.
client::answer_t<outbox_card_t> cancel(service_t& service, uint64_t id) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    auto message = read_message(service.outbox_cancel(id));
    while (message && message->state == "cancelling" && std::chrono::steady_clock::now() < deadline) {
        message = read_message(service.outbox_watch(id, message->version, 1000));
    }
    return message;
}

bool tell_cancelled(const outbox_card_t& message) {
    if (message.is_sent()) {
        fail(fmt::format("message {} is sent already", message.id));
        return false;
    }
    say("message {}: {}; {} {} been sent", message.id,
        message.state == "cancelling" ? "is being cancelled" : message.state,
        message.total == 0 ? "nothing of it"
                           : fmt::format("{} of {}", message.sent, counted(message.total, "datagram")),
        message.is_over() ? "had" : "have");
    return true;
}

bool tell_retried(const outbox_card_t& message) {
    say("message {}: {}{}", message.id, message.state, after("; ", message.circumstances()));
    return true;
}

/// The ids, or with --all those of all messages that are such. None, and told, when they cannot be had.
std::optional<std::vector<uint64_t>> ids_of(service_t& service, const outbox_options_t& options,
                                            const std::function<bool(const outbox_card_t&)>& is_such) {
    if (!options.all) {
        return options.ids;
    }
    const auto messages = list_outbox(service, false);
    if (!messages) {
        fail(messages.failure().text);
        return std::nullopt;
    }
    std::vector<uint64_t> ids;
    for (const outbox_card_t& message : *messages) {
        if (is_such(message)) {
            ids.push_back(message.id);
        }
    }
    return ids;
}

using act_t = std::function<int(service_t&, const std::vector<uint64_t>&)>;

/// A command on messages that are named, or on all that are such.
CLI::App* add_command(CLI::App* outbox, context_t& context, const std::string& name, const std::string& meaning,
                      const std::shared_ptr<outbox_options_t>& options,
                      const std::function<bool(const outbox_card_t&)>& is_such, const act_t& act) {
    auto* command = outbox->add_subcommand(name, meaning);
    auto* ids = command->add_option("id", options->ids, "the messages' ids")->type_name("ID");
    if (is_such) {
        ids->excludes(command->add_flag("--all", options->all, "all that can be"));
    } else {
        ids->required();
    }
    add_device_option(command, context);
    add_json_option(command, context);
    command->callback([&context, options, is_such, act] {
        context.run = [&context, options, is_such, act] {
            if (options->ids.empty() && !options->all) {
                return fail_usage("what is wanted is messages' ids, or --all");
            }
            return with_service(context, [&](service_t& service) {
                const auto wanted = ids_of(service, *options, is_such);
                return wanted ? act(service, *wanted) : exit_failed;
            });
        };
    });
    return command;
}

void add_list_command(CLI::App* outbox, context_t& context) {
    const auto all = std::make_shared<bool>(false);
    const auto run = [&context, all] {
        context.run = [&context, all] {
            return with_service(context, [&](service_t& service) { return list(service, *all, context.json); });
        };
    };
    auto* command = outbox->add_subcommand("list", "List the messages that are not sent");
    for (CLI::App* const one : {command, outbox}) {
        one->add_flag("--all", *all, "also those that are sent or cancelled, as long as the service keeps them");
    }
    add_device_option(command, context);
    add_json_option(command, context);
    command->callback(run);
    outbox->callback([outbox, run] {
        if (outbox->get_subcommands().empty()) {
            run();
        }
    });
}

}  // namespace

void add_outbox_commands(CLI::App& app, context_t& context) {
    auto* outbox = app.add_subcommand("outbox", "List, show, cancel or retry what was handed in to be sent");
    outbox->require_subcommand(0, 1);
    add_device_option(outbox, context);
    add_json_option(outbox, context);
    outbox->footer(
        "Bare 'zpd outbox' lists.\n"
        "\n"
        "Examples:\n"
        "  zpd outbox\n"
        "  zpd outbox show 12\n"
        "  zpd outbox cancel 12 13\n"
        "  zpd outbox retry --all --expires never");
    add_list_command(outbox, context);
    const auto options = std::make_shared<outbox_options_t>();
    add_command(outbox, context, "show", "Tell all of messages", options, nullptr,
                [&context](service_t& service, const auto& ids) { return show(service, ids, context.json); });
    add_command(
        outbox, context, "cancel", "Give messages up; what went out of them is gone", options,
        [](const outbox_card_t& message) { return !message.is_over(); },
        [&context](service_t& service, const auto& ids) {
            return for_each_message(
                ids, context.json, [&](uint64_t id) { return cancel(service, id); }, tell_cancelled);
        });
    auto* retry = add_command(
        outbox, context, "retry", "Send messages after all that were set aside, or at once that are held back", options,
        [](const outbox_card_t& message) { return message.state == "set aside"; },
        [&context, options](service_t& service, const auto& ids) {
            const auto again = [&](uint64_t id) {
                return read_message(service.outbox_retry(id, options->expiry.from_now()));
            };
            return for_each_message(ids, context.json, again, tell_retried);
        });
    add_expires_option(retry, options->expiry);
}
