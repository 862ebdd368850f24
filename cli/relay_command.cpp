/// zpd relay: a machine's modems in a fleet.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "base/end_signals.h"
#include "base/told_line.h"
#include "cli/command.h"
#include "cli/configuration.h"
#include "cli/output.h"
#include "cli/server_arguments.h"
#include "relay/modem_relay.h"
#include "service/service_manager.h"

namespace {

struct relay_options_t {
    std::string server;
    nats::server_t security;  // its files
    std::string group;
    std::vector<std::string> devices;
    std::string machine;
    std::filesystem::path state;
};

std::string machine_name() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "machine";
}

void tell_of_relay(base::priority_t priority, const std::string& text) {
    base::tell_line(priority == base::priority_t::info ? stdout : stderr, priority, "zpd relay: " + text);
}

/// Waits until they are ready, which is told, and for the end.
void run_relays(const std::vector<std::unique_ptr<fleet::modem_relay_t>>& relays, const base::end_signals_t& signals,
                const service_manager_t& manager, const std::string& place) {
    constexpr int between_looks = 100;         // milliseconds
    constexpr int longest_silence = 5 * 1000;  // then the manager goes on; what is waited for has been told
    bool is_ready = false;
    bool is_told = false;
    for (int waited = 0; !signals.wait(between_looks); waited += between_looks) {
        const bool are_all = std::ranges::all_of(relays, [](const auto& relay) { return relay->is_ready(); });
        if (are_all && !is_ready) {
            is_ready = true;
            say("ready: {} of {}", counted(relays.size(), "modem"), place);
        }
        if (!is_told && (is_ready || waited >= longest_silence)) {
            is_told = true;
            manager.tell("READY=1\nSTATUS=" + place);
        }
        waited = std::min(waited, longest_silence);
    }
    manager.tell("STOPPING=1");
}

int run_relay(const relay_options_t& options) {
    if (options.server.empty()) {
        return fail_usage("the server is missing: --server URL, or 'server = URL' in the configuration");
    }
    const auto address = fleet::read_url(options.server);
    if (!address) {
        return fail_usage(address.failure().text);
    }
    std::error_code failed;
    std::filesystem::create_directories(options.state, failed);
    if (failed) {
        return fail(fmt::format("cannot make the folder {}: {}", options.state.native(), failed.message()));
    }
    const service_manager_t manager;
    const base::end_signals_t signals;
    nats::server_t server = options.security;
    server.url = address->server.url;
    const std::string machine = options.machine.empty() ? machine_name() : options.machine;
    const auto connection = nats::connection_t::open(nats::with_environment(server), "zpd relay " + machine, true);
    if (!connection) {
        return fail(connection.failure().text);
    }
    const std::string group = options.group.empty() ? address->group : options.group;
    std::vector<std::unique_ptr<fleet::modem_relay_t>> relays;
    for (const std::string& device : options.devices.empty() ? std::vector<std::string>{"ZPD1"} : options.devices) {
        relays.push_back(std::make_unique<fleet::modem_relay_t>(
            fleet::modem_options_t{device, machine, group, options.state}, **connection, tell_of_relay));
    }
    run_relays(relays, signals, manager, fmt::format("{}/{}", nats::shown_url(server.url), group));
    for (const auto& relay : relays) {
        relay->end();
    }
    return exit_done;
}

}  // namespace

void add_relay_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("relay", "Have the modems of this machine serve a fleet's queue");
    const auto options = std::make_shared<relay_options_t>();
    options->state = default_state();
    command->configurable();
    add_config_option(command);
    command->add_option("--server", options->server, "the fleet's server, or several of its cluster, with commas")
        ->type_name("nats://HOST[:PORT]");
    command->add_option("--group", options->group, "the group of modems that this machine's are of")
        ->type_name("NAME")
        ->check(CLI::Validator(
            [](const std::string& name) {
                return fleet::is_group(name) ? std::string()
                                             : fmt::format("'{}' is no group: 1 to 32 letters, digits, - and _", name);
            },
            ""))
        ->default_str(std::string(fleet::usual_group));
    command->add_option("--device", options->devices, "the device of a modem's service; may come again")
        ->type_name("NAME|PATH")
        ->allow_extra_args(false)
        ->check(not_empty("the device's name"))
        ->default_str(std::string(client::default_device));
    command->add_option("--name", options->machine, "this machine's name in the fleet (default: its host's)")
        ->type_name("NAME")
        ->check(not_empty("the machine's name"));
    command->add_option("--state", options->state, "a folder for what the relay must know after a start")
        ->type_name("DIR")
        ->check(not_empty("the folder's name"))
        ->capture_default_str();
    add_server_options(command, options->security);
    command->footer(
        "Runs beside 'zpd serve', in the foreground until SIGINT or SIGTERM. It takes cards from the\n"
        "group's queue, as many as the modem has room for, hands them to the service's outbox, and tells\n"
        "the fleet what became of them, what was received, and how the modem fares. What is still in the\n"
        "outbox when it ends goes back to the queue.\n"
        "\n"
        "The service and the server may come later, and go and come again: they are waited for.\n" +
        std::string(server_environment_help) +
        "\n"
        "\n"
        "Examples:\n"
        "  zpd relay --server nats://queue.example.org --group berlin\n"
        "  zpd relay --server tls://queue.example.org --credentials /etc/zpd/modem1.creds --device ZPD1 --device ZPD2");
    command->callback([&context, options] { context.run = [options] { return run_relay(*options); }; });
}
