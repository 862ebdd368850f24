/// zpd network.
#include "cli/command.h"
#include "cli/fault_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "network/network.h"
#include "service/end_signals.h"

namespace {

struct network_options_t {
    std::vector<std::string> phones;
    std::filesystem::path directory;
    std::vector<std::string> faults;
    std::filesystem::path trace;
};

/// Of NUMBER[:NETWORK].
std::string number_of(const std::string& phone) {
    return phone.substr(0, phone.find(':'));
}

/// Stops at the first that is none.
std::string set_faults(network::network_t& network, const fault_order_t& order) {
    for (const std::string& fault : order.faults) {
        if (std::string error = network.set_fault(order.phone, fault); !error.empty()) {
            return error;
        }
    }
    return {};
}

std::string set_first_faults(network::network_t& network, const std::vector<std::string>& faults) {
    for (const std::string& fault : faults) {
        const size_t colon = fault.find(':');
        if (colon == std::string::npos) {
            return fmt::format("\"{}\" is no NUMBER:FAULT", fault);
        }
        if (std::string error = set_faults(network, {fault.substr(0, colon), {fault.substr(colon + 1)}});
            !error.empty()) {
            return error;
        }
    }
    return {};
}

int run_network(const network_options_t& options) {
    const end_signals_t signals;
    std::string error;
    const auto network = network::network_t::start(options.directory, options.phones, &error);
    if (!network) {
        return fail(error);
    }
    fault_socket_t orders;
    error = set_first_faults(*network, options.faults);
    if (error.empty() && !options.trace.empty()) {
        error = network->trace(options.trace);
    }
    if (error.empty()) {
        error = orders.open(options.directory);
    }
    if (!error.empty()) {
        return fail(error);
    }
    for (const std::string& phone : options.phones) {
        say("{}", network->link(number_of(phone)).native());
    }
    say("ready: {} in {}", counted(options.phones.size(), "modem"), options.directory.native());
    orders.serve([&](const fault_order_t& order) { return set_faults(*network, order); }, signals.descriptor());
    return exit_done;
}

}  // namespace

void add_network_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("network", "Run an emulated cellular network: one modem a phone number");
    const auto options = std::make_shared<network_options_t>();
    command->add_option("--phones", options->phones, "the phones' numbers, and the networks of those not on GSM")
        ->type_name("N1[:NETWORK],N2")
        ->delimiter(',')
        ->check(CLI::Validator([](const std::string& phone) { return check_number(number_of(phone)); }, ""))
        ->required();
    command->add_option("--dir", options->directory, "where the modems' ttys appear, as DIR/<number>")
        ->type_name("DIR")
        ->required();
    command->add_option("--fault", options->faults, "a fault from the start on, see 'zpd fault --list'; repeatable")
        ->type_name("NUMBER:FAULT[=VALUE]");
    command->add_option("--trace", options->trace, "write what passes over the air to this file, for Wireshark")
        ->type_name("FILE");
    command->footer(
        "A NETWORK is gsm, edge, umts, hspa, lte, nr or cdma; cards cross between them all.\n"
        "Runs in the foreground until SIGINT or SIGTERM, and prints a line that begins with\n"
        "\"ready\" when the modems answer. 'zpd fault' makes them misbehave while it runs.\n\nExample:\n"
        "  zpd network --phones +12025550100,+12025550199 --dir /tmp/network\n"
        "  zpd network --phones +12025550100,+12025550199:cdma --dir /tmp/network\n"
        "  zpd serve --modem /tmp/network/+12025550100");
    command->callback([&context, options] { context.run = [options] { return run_network(*options); }; });
}
