/// zpd network.
#include "cli/command.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "network/network.h"
#include "service/end_signals.h"

namespace {

struct network_options_t {
    std::vector<std::string> numbers;
    std::filesystem::path directory;
};

int run_network(const network_options_t& options) {
    const end_signals_t signals;
    std::string error;
    const auto network = network::network_t::start(options.directory, options.numbers, &error);
    if (!network) {
        return fail(error);
    }
    for (const std::string& number : options.numbers) {
        say("{}", network->link(number).native());
    }
    say("ready: {} in {}", counted(options.numbers.size(), "modem"), options.directory.native());
    signals.wait(-1);
    return exit_done;
}

}  // namespace

void add_network_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("network", "Run an emulated cellular network: one modem a phone number");
    const auto options = std::make_shared<network_options_t>();
    command->add_option("--phones", options->numbers, "the phones' numbers, parted by commas")
        ->type_name("N1,N2")
        ->delimiter(',')
        ->check(CLI::Validator([](const std::string& number) { return check_number(number); }, ""))
        ->required();
    command->add_option("--dir", options->directory, "where the modems' ttys appear, as DIR/<number>")
        ->type_name("DIR")
        ->required();
    command->footer(
        "Runs in the foreground until SIGINT or SIGTERM, and prints a line that begins with\n"
        "\"ready\" when the modems answer.\n\nExample:\n"
        "  zpd network --phones +12025550100,+12025550199 --dir /tmp/network\n"
        "  zpd serve --modem /tmp/network/+12025550100");
    command->callback([&context, options] { context.run = [options] { return run_network(*options); }; });
}
