/// zpd fleet: the modems behind a server's queue, and what they are given to work with.
#include <map>

#include "base/duration.h"
#include "cli/command.h"
#include "cli/fleet_report.h"
#include "cli/output.h"
#include "cli/radio_report.h"
#include "cli/server_arguments.h"
#include "cli/service_connection.h"
#include "cli/times.h"
#include "relay/fleet.h"

namespace {

using nlohmann::ordered_json;

struct fleet_options_t {
    nats::server_t security;  // its files
    bool follow = false;
    fleet::layout_t layout;
};

client::answer_t<fleet::address_t> address_of(const context_t& context, const fleet_options_t& options) {
    auto address = fleet::read_url(context.device);
    if (address) {
        nats::server_t server = options.security;
        server.url = address->server.url;
        address->server = nats::with_environment(std::move(server));
    }
    return address;
}

client::answer_t<ordered_json> fleet_of(client::service_t& service) {
    auto status = status_of_service(service);
    return status ? client::answer_t<ordered_json>(status->value("fleet", ordered_json::object())) : status.failure();
}

void tell_modem(const ordered_json& modem, bool is_there, bool json) {
    if (json) {
        ordered_json told = modem;
        told["present"] = is_there;
        say_json(told);
    } else {
        say("{}  {:<24} {}", local_time(static_cast<uint64_t>(std::time(nullptr))), modem_name(modem),
            is_there ? modem_words(modem) : "is gone");
    }
}

/// The modems by their names, those before replaced; each change is told, but for those of its queue and room.
void tell_changes(std::map<std::string, ordered_json>& known, const ordered_json& fleet, bool json) {
    std::map<std::string, ordered_json> now;
    for (const ordered_json& modem : fleet.value("modems", ordered_json::array())) {
        const std::string name = modem_name(modem);
        const auto before = known.find(name);
        if (before == known.end() || modem_words(before->second) != modem_words(modem)) {
            tell_modem(modem, true, json);
        }
        now[name] = modem;
    }
    for (const auto& [name, modem] : known) {
        if (!now.contains(name)) {
            tell_modem(modem, false, json);
        }
    }
    known = std::move(now);
}

/// Until nobody reads any more. A server that is away, or has no such group, is told once, and waited for.
int follow_fleet(client::service_t& service, bool json) {
    constexpr int between_looks = 1000;  // milliseconds
    std::map<std::string, ordered_json> known;
    std::string lost;
    do {
        const auto fleet = fleet_of(service);
        if (fleet) {
            tell_changes(known, *fleet, json);
        } else if (fleet.failure().obstacle != client::obstacle_t::no_answer &&
                   fleet.failure().code != client::error_not_found) {  // the group, which may yet be made
            return fail(fleet.failure().text);
        } else if (lost.empty()) {
            fail(fleet.failure().text + "; waiting for it");
        }
        lost = fleet ? "" : fleet.failure().text;
    } while (wait_while_read(between_looks));
    return exit_done;
}

int run_fleet(const context_t& context, const fleet_options_t& options) {
    const auto address = address_of(context, options);
    if (!address) {
        return fail_usage(address.failure().text);
    }
    const auto service = fleet::fleet_t::open(*address);
    if (!service) {
        return fail(service.failure().text);
    }
    if (options.follow) {
        return follow_fleet(**service, context.json);
    }
    const auto fleet = fleet_of(**service);
    if (!fleet) {
        return fail(fleet.failure().text);
    }
    if (context.json) {
        say_json(*fleet);
    } else {
        say_fleet(*fleet);
    }
    return exit_done;
}

int make_fleet(const context_t& context, const fleet_options_t& options) {
    const auto address = address_of(context, options);
    if (!address) {
        return fail_usage(address.failure().text);
    }
    const auto connection = nats::connection_t::open(address->server, "zpd fleet make", false);
    if (!connection) {
        return fail(connection.failure().text);
    }
    const auto made = fleet::make(**connection, fleet::names_t(address->group), options.layout);
    if (!made) {
        const std::string refusal = (*connection)->last_refusal();
        return fail(made.failure().text + (refusal.empty() ? "" : ": " + refusal));
    }
    return exit_done;
}

void add_make_command(CLI::App* fleet, context_t& context, const std::shared_ptr<fleet_options_t>& options) {
    auto* command = fleet->add_subcommand("make", "Make a group's queue on its server, or change it");
    add_device_option(command, context);
    add_server_options(command, options->security);
    command->add_option("--replicas", options->layout.replicas, "on how many servers of a cluster each card is")
        ->type_name("N")
        ->check(CLI::IsMember(std::vector<int64_t>{1, 3, 5}).description(""))
        ->capture_default_str();
    constexpr uint64_t shortest = 3;  // seconds
    command
        ->add_option_function<std::string>(
            "--ack-wait",
            [options](const std::string& text) {
                options->layout.ack_wait = std::chrono::seconds(base::read_duration(text).value_or(0));
            },
            "a card of which its relay tells nothing for so long is given to another: 30s, 5m")
        ->type_name("TIME")
        ->check(CLI::Validator(
            [](const std::string& text) {
                const auto seconds = base::read_duration(text);
                return seconds && *seconds >= shortest && *seconds <= base::seconds_a_day
                           ? std::string()
                           : fmt::format("'{}' is no time from 3s to 1d", text);
            },
            ""))
        ->default_str("30s");
    command->add_option("--most-cards", options->layout.most_cards, "how many may wait; more are refused")
        ->type_name("N")
        ->check(CLI::PositiveNumber.description(""))
        ->capture_default_str();
    command->footer(
        "What is left out becomes as it is by default. Without this command the first relay, or the\n"
        "first card, makes a group by default, where the server lets it.\n\nExample:\n"
        "  zpd fleet make --device nats://queue.example.org/berlin --replicas 3");
    command->callback(
        [&context, options] { context.run = [&context, options] { return make_fleet(context, *options); }; });
}

}  // namespace

void add_fleet_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("fleet", "Show the modems of a fleet, or make its queue");
    command->require_subcommand(0, 1);
    const auto options = std::make_shared<fleet_options_t>();
    command->add_flag("--follow", options->follow, "go on with modems that come, change and go, until interrupted");
    add_device_option(command, context);
    add_json_option(command, context);
    add_server_options(command, options->security);
    command->footer(
        "A modem is told by its relay (zpd relay), by its machine and device; one that its relay has not\n"
        "told of for --ack-wait is gone.\n" +
        std::string(server_environment_help) +
        "\n\nExamples:\n"
        "  zpd fleet --device nats://queue.example.org/berlin\n"
        "  zpd fleet --device tls://queue.example.org --credentials ann.creds --follow");
    add_make_command(command, context, options);
    command->callback([&context, options] {
        if (!context.run) {
            context.run = [&context, options] { return run_fleet(context, *options); };
        }
    });
}
