/// zpd list, zpd status, zpd close: the messages that are with the driver, as it has them, and how the service fares.
#include <array>
#include <optional>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/fleet_report.h"
#include "cli/outbox_message.h"
#include "cli/output.h"
#include "cli/radio_report.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using client::client_t;
using nlohmann::ordered_json;

int tell(uint32_t id, const client::failure_t& failure) {
    if (failure.code == ZPD_ERROR_OUT_OF_RANGE) {
        return fail(fmt::format("there is no message {}, or it is closed already; see: zpd list", id));
    }
    return fail(failure.text);
}

/// The datagrams of a message by their status.
struct tally_t {
    size_t total = 0;
    size_t queued = 0;
    size_t submitted = 0;
    size_t failed = 0;
    size_t deferred = 0;
    size_t sent = 0;  // also those of a closed message that are done with

    bool is_over() const { return queued + submitted == 0; }
};

tally_t tally_of(const std::vector<uint32_t>& statuses) {
    tally_t tally{.total = statuses.size()};
    for (const uint32_t status : statuses) {
        switch (status) {
            case ZPD_STATUS_QUEUED:
                ++tally.queued;
                break;
            case ZPD_STATUS_SUBMITTED:
                ++tally.submitted;
                break;
            case ZPD_STATUS_FAILED:
                ++tally.failed;
                break;
            case ZPD_STATUS_DEFERRED:
                ++tally.deferred;
                break;
            default:
                ++tally.sent;
        }
    }
    return tally;
}

/// "2 of 5 datagrams sent, 1 with the radio, 2 queued"
std::string describe(const tally_t& tally) {
    std::string text = fmt::format("{} of {} sent", tally.sent, counted(tally.total, "datagram"));
    const std::pair<size_t, std::string_view> others[] = {{tally.submitted, "with the radio"},
                                                          {tally.queued, "queued"},
                                                          {tally.failed, "refused"},
                                                          {tally.deferred, "not sent because of that"}};
    for (const auto& [count, words] : others) {
        if (count != 0) {
            text += fmt::format(", {} {}", count, words);
        }
    }
    return text;
}

std::string_view status_word(uint32_t status) {
    constexpr std::array<std::string_view, 5> words{"queued", "submitted", "failed", "deferred", "sent"};
    return status < words.size() ? words[status] : "released";
}

/// One that the service has from the outbox is closed by it; of another, its client may have forgotten it.
void say_listed(uint32_t id, const tally_t& tally, const std::vector<outbox_card_t>* outbox) {
    std::string whose = tally.is_over() ? fmt::format("; close it with: zpd close {}", id) : std::string();
    for (const outbox_card_t& message : outbox != nullptr ? *outbox : std::vector<outbox_card_t>()) {
        if (message.driver_message == id) {
            whose = fmt::format("; message {} of the outbox: {} to {}, {} ago", message.id, message.name(),
                                message.number, message.age());
        }
    }
    say("{:5}  {}{}", id, describe(tally), whose);
}

int list(client_t& client, bool json) {
    const auto list = client.list();
    if (!list) {
        return fail(list.failure().text);
    }
    if (json) {
        say_json({{"total", list->total}, {"messages", list->ids}});
        return exit_done;
    }
    const auto outbox = list_outbox(client, false);
    for (const uint32_t id : list->ids) {
        // A message may be closed between the two requests.
        if (const auto statuses = client.status(id)) {
            say_listed(id, tally_of(*statuses), outbox ? &*outbox : nullptr);
        }
    }
    if (list->ids.size() < list->total) {
        say("and {} more", list->total - list->ids.size());
    }
    return exit_done;
}

int status(client_t& client, uint32_t id, bool json) {
    const auto statuses = client.status(id);
    if (!statuses) {
        return tell(id, statuses.failure());
    }
    ordered_json datagrams = ordered_json::array();
    for (const uint32_t datagram : *statuses) {
        datagrams.push_back(status_word(datagram));
    }
    const tally_t tally = tally_of(*statuses);
    if (json) {
        say_json({{"id", id}, {"over", tally.is_over()}, {"datagrams", datagrams}});
        return exit_done;
    }
    say("message {}: {}", id, describe(tally));
    for (size_t index = 0; index < statuses->size(); ++index) {
        say("{:5}  {}", index + 1, status_word((*statuses)[index]));
    }
    return exit_done;
}

int service_status(client::service_t& service, bool json) {
    const auto answer = status_of_service(service);
    if (!answer) {
        return fail(answer.failure().text);
    }
    const ordered_json& status = *answer;
    if (json) {
        say_json(status);
        return exit_done;
    }
    if (status.contains("fleet")) {
        say_fleet(status["fleet"]);
        return exit_done;
    }
    const auto number = [&](const char* of, const char* name) {
        return status.value(ordered_json::json_pointer(std::string("/") + of + "/" + name), uint64_t{0});
    };
    const auto text = [&](const char* name) { return base::escaped(status.value(name, std::string())); };
    say("service    device {} on {}, home {}", text("device"), text("modem"), text("home"));
    say("storing    {}", status.value("active", true) ? "on" : "off: received cards are dropped; zpd activation on");
    say("outbox     {} wait, {} being sent, {} set aside", number("outbox", "waiting"), number("outbox", "sending"),
        number("outbox", "set_aside"));
    say("cards      {} stored, {} dropped, {} to be stored", number("cards", "stored"), number("cards", "dropped"),
        number("cards", "kept"));
    say("datagrams  {} wait for others, {} given up", number("datagrams", "incomplete"),
        number("datagrams", "given_up"));
    say_radio(status.value("radio", ordered_json(nullptr)));
    return exit_done;
}

int close(client_t& client, uint32_t id) {
    const auto closed = client.close(id);
    return closed ? exit_done : tell(id, closed.failure());
}

std::shared_ptr<std::optional<uint32_t>> add_id(CLI::App* command, bool required) {
    auto id = std::make_shared<std::optional<uint32_t>>();
    command->add_option("id", *id, "the message's id, as zpd list has it")
        ->type_name("MESSAGE")
        ->check(CLI::Range(0U, ZPD_MESSAGE_ID_MAX).description(""))
        ->required(required);
    return id;
}

}  // namespace

void add_message_commands(CLI::App& app, context_t& context) {
    auto* list_command = app.add_subcommand("list", "List the messages that are with the driver");
    add_device_option(list_command, context);
    add_json_option(list_command, context);
    list_command->footer("What waits for the driver is in the outbox; see: zpd outbox\n\nExample:\n  zpd list");
    list_command->callback([&context] {
        context.run = [&context] {
            return with_device(context, [&](client_t& client) { return list(client, context.json); });
        };
    });

    auto* status_command = app.add_subcommand(
        "status", "Tell how far a message is, datagram by datagram; without one, how the service fares");
    const auto status_id = add_id(status_command, false);
    add_device_option(status_command, context);
    add_json_option(status_command, context);
    status_command->footer("The service counts from its start.\n\nExamples:\n  zpd status 240\n  zpd status");
    status_command->callback([&context, status_id] {
        context.run = [&context, status_id] {
            if (!*status_id) {
                return with_service(context, [&](auto& service) { return service_status(service, context.json); });
            }
            return with_device(context, [&](client_t& client) { return status(client, **status_id, context.json); });
        };
    });

    auto* close_command = app.add_subcommand("close", "Release a message; what is queued of it is still sent");
    const auto close_id = add_id(close_command, true);
    add_device_option(close_command, context);
    close_command->footer("Example:\n  zpd close 240");
    close_command->callback([&context, close_id] {
        context.run = [&context, close_id] {
            return with_device(context, [&](client_t& client) { return close(client, **close_id); });
        };
    });
}
