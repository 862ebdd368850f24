/// zpd network.
#include <set>

#include "base/end_signals.h"
#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/fault_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "network/fault_table.h"
#include "network/network.h"

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

/// The phone and the fault of NUMBER:FAULT.
fault_order_t first_fault(const std::string& text) {
    const size_t colon = text.find(':');
    return {text.substr(0, colon), {text.substr(colon + 1)}};
}

std::string set_first_faults(network::network_t& network, const std::vector<std::string>& faults) {
    for (const std::string& fault : faults) {
        if (std::string error = set_faults(network, first_fault(fault)); !error.empty()) {
            return error;
        }
    }
    return {};
}

std::string check_phone(const std::string& phone) {
    const std::string number = number_of(phone);
    if (std::string error = check_number(number); !error.empty()) {
        return error;
    }
    return number == phone || network::technology_named(phone.substr(number.size() + 1))
               ? std::string()
               : fmt::format("\"{}\" names no network after the number; see zpd network --help", phone);
}

std::string check_first_fault(const std::string& text) {
    return text.find(':') == std::string::npos ? fmt::format("\"{}\" is no NUMBER:FAULT", text)
                                               : network::set_fault(nullptr, first_fault(text).faults.front());
}

/// A number that is given twice, or none.
std::string repeated(const std::vector<std::string>& phones) {
    std::set<std::string> numbers;
    for (const std::string& phone : phones) {
        std::string number = number_of(phone);
        if (!numbers.insert(number.substr(number.starts_with('+') ? 1 : 0)).second) {
            return number;
        }
    }
    return {};
}

int run_network(const network_options_t& options) {
    if (const std::string number = repeated(options.phones); !number.empty()) {
        fail(fmt::format("--phones: the phone {} is there twice", number));
        return exit_usage;
    }
    const base::end_signals_t signals;
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
        say_line(base::escaped(network->link(number_of(phone)).native()));
    }
    say("ready: {} in {}", counted(options.phones.size(), "modem"), base::escaped(options.directory.native()));
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
        ->check(CLI::Validator(check_phone, ""))
        ->required();
    command->add_option("--dir", options->directory, "where the modems' ttys appear, as DIR/<number>")
        ->type_name("DIR")
        ->required();
    command->add_option("--fault", options->faults, "a fault from the start on, see 'zpd fault --list'; repeatable")
        ->type_name("NUMBER:FAULT[=VALUE]")
        ->check(CLI::Validator(check_first_fault, ""));
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
