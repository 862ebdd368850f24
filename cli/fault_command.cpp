/// zpd fault.
#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/network_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "network/fault_table.h"

namespace {

struct fault_options_t {
    std::filesystem::path directory;
    std::string phone;
    std::vector<std::string> faults;
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

/// What is in force at the phone, an order a line.
int show_faults(const fault_options_t& options, bool json) {
    const nlohmann::ordered_json answer =
        send_order(options.directory, {{"show", nlohmann::ordered_json{{"phone", options.phone}}}});
    if (const std::string error = answer.at("error").get<std::string>(); !error.empty()) {
        return fail(error);
    }
    const nlohmann::ordered_json& faults = answer.at("phones").front().at("faults");
    if (json) {
        say_json({{"phone", options.phone}, {"faults", faults}});
        return exit_done;
    }
    for (const nlohmann::ordered_json& fault : faults) {
        say_line(base::escaped(fault.get<std::string>()));
    }
    return exit_done;
}

int run_fault(const fault_options_t& options, bool json) {
    if (options.list) {
        return list_faults(json);
    }
    if (options.directory.empty() || options.phone.empty()) {
        return fail_usage("what is wanted is --dir DIR and a phone's number, or --list; see zpd fault --help");
    }
    if (options.faults.empty()) {
        return show_faults(options, json);
    }
    if (json) {
        return fail_usage("--json goes with --list, or with a phone alone: nothing else is printed");
    }
    const nlohmann::ordered_json answer =
        send_order(options.directory, {{"fault", {{"phone", options.phone}, {"faults", options.faults}}}});
    const std::string error = answer.at("error").get<std::string>();
    return error.empty() ? exit_done : fail(error);
}

}  // namespace

void add_fault_command(CLI::App& app, context_t& context) {
    auto* command =
        app.add_subcommand("fault", "Make a phone of a running emulated network misbehave, or show what it does wrong");
    const auto options = std::make_shared<fault_options_t>();
    command->add_option("--dir", options->directory, "the directory of the network")->type_name("DIR");
    command->add_option("phone", options->phone, "the phone's number")
        ->type_name("PHONE")
        ->check(CLI::Validator([](const std::string& number) { return check_number(number); }, ""));
    command->add_option("fault", options->faults, "what its modem, or the network for it, does wrong")
        ->type_name("FAULT[=VALUE]")
        ->check(CLI::Validator([](const std::string& fault) { return network::set_fault(nullptr, fault); }, ""));
    command->add_flag("--list", options->list, "print all faults");
    command->add_flag("--json", context.json, "with --list, or without a fault: print one JSON object, for scripts");
    command->footer(
        "Without a fault it shows those that are in force, counts and times as far as they are left.\n\nExamples:\n"
        "  zpd fault --dir /tmp/network +12025550100 refuse=38x2 late-results=4000\n"
        "  zpd fault --dir /tmp/network +12025550100\n"
        "  zpd fault --dir /tmp/network +12025550100 clear\n"
        "  zpd fault --list");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_fault(*options, context.json); }; });
}
