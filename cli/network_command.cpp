/// zpd network, and what the commands below it share.
#include <algorithm>
#include <optional>

#include "base/end_signals.h"
#include "base/safe_text.h"
#include "cli/network_arguments.h"
#include "cli/network_commands.h"
#include "cli/network_orders.h"
#include "cli/network_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "cli/planned_faults.h"
#include "network/fault_table.h"
#include "network/network.h"

namespace {

struct network_options_t {
    std::vector<std::string> phones;
    std::filesystem::path directory;
    std::vector<std::string> faults;
    std::filesystem::path trace;
    std::filesystem::path at_log;
    std::vector<std::string> listening;
    std::filesystem::path fault_plan;
    std::optional<uint64_t> chaos;
};

std::string listen(network::network_t& network, const std::vector<std::string>& all) {
    for (const std::string& text : all) {
        const listening_t listening = listening_of(text);
        if (std::string error = network.listen(listening.number, *listening.address); !error.empty()) {
            return error;
        }
    }
    return {};
}

std::string set_first_faults(network::network_t& network, const std::vector<std::string>& faults) {
    for (const std::string& text : faults) {
        const first_fault_t first = first_fault_of(text);
        if (std::string error = network.set_fault(first.number, first.fault); !error.empty()) {
            return error;
        }
    }
    return {};
}

/// An empty text, or what the options ask for that cannot be.
std::string problem_with_network(const network_options_t& options) {
    if (options.phones.empty() || options.directory.empty()) {
        return "--phones and --dir are wanted; see zpd network --help";
    }
    if (const std::string number = repeated_number(options.phones); !number.empty()) {
        return fmt::format("--phones: the phone {} is there twice", number);
    }
    if (const std::string number = repeated_number(options.listening); !number.empty()) {
        return fmt::format("--listen: the phone {} is there twice", number);
    }
    const std::vector<std::string> phones = numbers_of(options.phones);
    for (const std::string& number : numbers_of(options.listening)) {
        if (std::ranges::find(phones, number) == phones.end()) {
            return fmt::format("--listen: --phones names no phone {}", number);
        }
    }
    return {};
}

/// All that is asked for before the network is ready. Returns an empty text, or what failed.
std::string set_up(network::network_t& network, const network_options_t& options) {
    std::string error = set_first_faults(network, options.faults);
    if (error.empty() && !options.trace.empty()) {
        error = network.trace(options.trace, [](const std::string& what) { remark(what); });
    }
    if (error.empty() && !options.at_log.empty()) {
        error = network.log_dialogues(options.at_log, [](const std::string& what) { remark(what); });
    }
    return error.empty() ? listen(network, options.listening) : error;
}

void say_ready(network::network_t& network, const network_options_t& options) {
    for (const std::string& number : numbers_of(options.phones)) {
        say_line(base::escaped(network.link(number).native()));
    }
    for (const std::string& number : numbers_of(options.listening)) {
        say("{} {}", number, network.listens_at(number));
    }
    say("ready: {} in {}", counted(options.phones.size(), "modem"), base::escaped(options.directory.native()));
}

int run_network(const network_options_t& options) {
    if (const std::string problem = problem_with_network(options); !problem.empty()) {
        return fail_usage(problem);
    }
    std::string error;
    const auto plan = options.fault_plan.empty()
                          ? std::vector<network::planned_order_t>()
                          : network::read_fault_plan(options.fault_plan, numbers_of(options.phones), &error);
    if (!error.empty()) {
        return fail_usage("--fault-plan: " + error);
    }
    const base::end_signals_t signals;
    const auto network = network::network_t::start(options.directory, options.phones, &error);
    network_socket_t socket;
    if (network) {
        error = set_up(*network, options);
        error = error.empty() ? socket.open(options.directory) : error;
    }
    if (!error.empty()) {
        return fail(error);
    }
    say_ready(*network, options);
    follow_faults(*network, numbers_of(options.phones), plan, options.chaos);
    network_orders_t orders(*network);
    socket.serve([&](const nlohmann::json& order) { return orders.execute(order); }, signals.descriptor());
    return exit_done;
}

}  // namespace

void add_network_directory(CLI::App* command, std::filesystem::path& directory) {
    command->add_option("--dir", directory, "the directory of the network")->type_name("DIR")->required();
}

CLI::Option* add_number_option(CLI::App* command, const std::string& name, std::string& number,
                               const std::string& help) {
    return command->add_option(name, number, help)
        ->type_name("PHONE")
        ->transform(CLI::Validator([](std::string& typed) { return read_number(typed); }, ""));
}

void add_network_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("network", "Run an emulated cellular network: one modem a phone number");
    command->require_subcommand(0, 1);
    const auto options = std::make_shared<network_options_t>();
    command->add_option("--phones", options->phones, "the phones' numbers, and the networks of those not on GSM")
        ->type_name("N1[:NETWORK],N2")
        ->delimiter(',')
        ->check(CLI::Validator(check_networked_phone, ""));
    command->add_option("--dir", options->directory, "where the modems' ttys appear, as DIR/<number>")
        ->type_name("DIR");
    command->add_option("--fault", options->faults, "a fault from the start on, see 'zpd fault --list'; repeatable")
        ->type_name("NUMBER:FAULT[=VALUE]")
        ->check(CLI::Validator(check_first_fault, ""));
    command->add_option("--trace", options->trace, "write what passes over the air to this .pcapng file, for Wireshark")
        ->type_name("FILE");
    command->add_option("--at-log", options->at_log, "write what each modem and its hosts say to DIR/<number>.log")
        ->type_name("DIR");
    command
        ->add_option(
            "--listen", options->listening,
            "a TCP port where the phone's modem is reached as well, 0 for any; ADDRESS is 127.0.0.1; repeatable")
        ->type_name("NUMBER:[ADDRESS:]PORT")
        ->check(CLI::Validator(check_listening, ""));
    command
        ->add_option("--fault-plan", options->fault_plan,
                     "faults on a timetable, of lines TIME NUMBER FAULT[=VALUE] ...")
        ->type_name("FILE");
    command->add_option("--chaos", options->chaos, "faults by chance that heal, the same for the same seed")
        ->type_name("SEED")
        ->check(CLI::Validator(check_seed, ""));
    command->footer(
        "A NETWORK is gsm, edge, umts, hspa, lte, nr or cdma; cards cross between them all.\n"
        "Runs in the foreground until SIGINT or SIGTERM, and prints a line that begins with\n"
        "\"ready\" when the modems answer. While it runs, 'zpd fault' makes them misbehave, and the\n"
        "commands below it ask it what is there.\n\nExample:\n"
        "  zpd network --phones +12025550100,+12025550199 --dir /tmp/network\n"
        "  zpd network --phones +12025550100,+12025550199:cdma --dir /tmp/network\n"
        "  zpd serve --modem /tmp/network/+12025550100");
    command->callback([&context, options, command] {
        if (command->get_subcommands().empty()) {
            context.run = [options] { return run_network(*options); };
        }
    });
    add_network_send_command(command, context);
    add_network_show_command(command, context);
    add_network_expect_command(command, context);
}
