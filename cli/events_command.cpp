/// zpd events: what has happened to cards, to the modem and to the service.
#include <chrono>
#include <thread>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "cli/service_connection.h"
#include "cli/times.h"

namespace {

using service_ptr_t = std::unique_ptr<client::service_t>;
using nlohmann::ordered_json;

constexpr uint32_t wait_for_event = 1000;  // ms; between two looks whether anybody reads still
constexpr int wait_for_service = 200;      // ms

struct events_command_t {
    bool follow = false;
    uint64_t after = 0;
    uint64_t since = 0;
};

void say_event(const ordered_json& event, bool json) {
    if (json) {
        say_json(event);
    } else {
        say("{}  {:>5}  {}", local_time(event.at("time")), event.at("id").get<uint64_t>(),
            base::escaped(event.at("text").get<std::string>()));
    }
}

/// Says those of one answer, the last of which is then the one to go on after. False for one that is no list.
bool say_events(const ordered_json& answer, bool json, uint64_t& after) {
    try {
        for (const ordered_json& event : answer.at("events")) {
            say_event(event, json);
            after = event.at("id");
        }
        return true;
    } catch (const ordered_json::exception&) {
        return false;
    }
}

/// A service that ends may be back soon. None when it did not come while somebody read.
service_ptr_t reconnected(const std::string& device, const client::failure_t& loss) {
    fail(loss.text + "; waiting for it to be back");
    while (wait_while_read(wait_for_service)) {
        if (auto service = connect_service(device)) {
            return std::move(*service);
        }
    }
    return nullptr;
}

/// Until a signal ends the program, or nobody reads what it says any more.
int run_events(const context_t& context, events_command_t options) {
    auto connection = connect_service(context.device);
    if (!connection) {
        return fail(connection.failure().text);
    }
    service_ptr_t service = std::move(*connection);
    do {
        const auto answer = service->events(options.after, options.since, options.follow ? wait_for_event : 0);
        if (!answer && (!options.follow || answer.failure().obstacle == client::obstacle_t::request)) {
            return fail(answer.failure().text);
        }
        if (!answer) {
            service = reconnected(context.device, answer.failure());
            continue;
        }
        const uint64_t before = options.after;
        const ordered_json list = ordered_json::parse(*answer, nullptr, false);
        if (!say_events(list, context.json, options.after)) {
            return fail("the service answered what is no list of events");
        }
        if (!options.follow && (options.after == before || !list.value("more", false))) {
            return exit_done;
        }
    } while (service && wait_while_read(0));
    return exit_done;
}

}  // namespace

void add_events_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("events", "Show what has happened to cards, the modem and the service");
    const auto options = std::make_shared<events_command_t>();
    add_device_option(command, context);
    command->add_flag("--follow", options->follow,
                      "go on with what happens, until interrupted, and when the service starts again");
    command
        ->add_option_function<std::string>(
            "--since", [options](const std::string& text) { options->since = read_time(text).value_or(0); },
            "what has happened since then: so long ago (10m, 2h, 3d), a local time or seconds since 1970")
        ->type_name("TIME")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return read_time(text) ? std::string()
                                       : fmt::format("'{}' is no 2h, 2026-11-22, '2026-11-22 11:05' or seconds", text);
            },
            ""));
    command->add_option("--after", options->after, "what has happened after the event of this number")
        ->type_name("EVENT");
    command->add_flag("--json", context.json, "print one JSON object a line, for scripts");
    command->footer(
        "A line is the local time, the event's number, and what happened. Numbers rise, and are never\n"
        "given again: a script goes on where it was with --after. Events are kept as long as\n"
        "journal-age says (zpd serve --help).\n"
        "\n"
        "Examples:\n"
        "  zpd events --since 2h\n"
        "  zpd events --follow --json | jq -r 'select(.kind == \"stored\") | .card.path'");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_events(context, *options); }; });
}
