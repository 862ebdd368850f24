/// zpd fault.
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/fault_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "network/fault_table.h"

namespace {

struct fault_options_t {
    std::filesystem::path directory;
    fault_order_t order;
    bool list = false;
};

/// "name=VALUE", "name[=VALUE]" or "name".
std::string form_of(const network::fault_t& fault) {
    const bool optional = fault.value.starts_with('[');
    return fault.value.empty() ? std::string(fault.name)
           : optional          ? fmt::format("{}[={}", fault.name, fault.value.substr(1))
                               : fmt::format("{}={}", fault.name, fault.value);
}

int list_faults(bool json) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const network::fault_t& fault : network::fault_table()) {
        if (json) {
            all.push_back({{"name", fault.name}, {"value", fault.value}, {"meaning", fault.meaning}});
        } else {
            say("{:<24} {}", form_of(fault), fault.meaning);
        }
    }
    if (json) {
        say_json({{"faults", all}});
    }
    return exit_done;
}

int run_fault(const fault_options_t& options, bool json) {
    if (options.list) {
        return list_faults(json);
    }
    if (json) {
        return fail_usage("--json goes with --list: nothing else is printed");
    }
    if (options.directory.empty() || options.order.phone.empty() || options.order.faults.empty()) {
        return fail_usage("what is wanted is --dir DIR, a phone's number and a fault, or --list; see zpd fault --help");
    }
    const std::string error = send_order(options.directory, options.order);
    return error.empty() ? exit_done : fail(error);
}

}  // namespace

void add_fault_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("fault", "Make a phone of a running emulated network misbehave, or stop it");
    const auto options = std::make_shared<fault_options_t>();
    command->add_option("--dir", options->directory, "the directory of the network")->type_name("DIR");
    command->add_option("phone", options->order.phone, "the phone's number")
        ->type_name("PHONE")
        ->check(CLI::Validator([](const std::string& number) { return check_number(number); }, ""));
    command->add_option("fault", options->order.faults, "what its modem, or the network for it, does wrong")
        ->type_name("FAULT[=VALUE]")
        ->check(CLI::Validator([](const std::string& fault) { return network::set_fault(nullptr, fault); }, ""));
    command->add_flag("--list", options->list, "print all faults");
    command->add_flag("--json", context.json, "with --list: print one JSON object, for scripts");
    command->footer(
        "Examples:\n"
        "  zpd fault --dir /tmp/network +12025550100 refuse=38x2 late-results=4000\n"
        "  zpd fault --dir /tmp/network +12025550100 clear\n"
        "  zpd fault --list");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_fault(*options, context.json); }; });
}
