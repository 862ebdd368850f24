/// zpd version.
#include "cli/command.h"
#include "cli/output.h"

namespace {

int run_version(const context_t& context) {
    std::optional<uint32_t> interface_version;
    if (auto client = client::client_t::connect(context.device)) {
        if (const auto answer = client->version()) {
            interface_version = *answer;
        }
    }
    const nlohmann::ordered_json interface_json =
        interface_version ? nlohmann::ordered_json(*interface_version) : nullptr;
    if (context.json) {
        say_json({{"program", ZPD_PROGRAM_VERSION}, {"interface", interface_json}});
    } else if (interface_version) {
        say("zpd {}\ndriver interface {} on device {}", ZPD_PROGRAM_VERSION, *interface_version, context.device);
    } else {
        say("zpd {}\nno service runs on device {}", ZPD_PROGRAM_VERSION, context.device);
    }
    return exit_done;
}

}  // namespace

void add_version_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("version", "Tell the versions of the program and of the running driver");
    add_device_option(command, context);
    add_json_option(command, context);
    command->footer("Example:\n  zpd version --json");
    command->callback([&context] { context.run = [&context] { return run_version(context); }; });
}
