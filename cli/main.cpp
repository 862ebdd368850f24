/// The `zpd` command.
#include <exception>

#include "cli/command.h"
#include "cli/output.h"
#include "service/device_socket.h"

namespace {

void add_commands(CLI::App& app, context_t& context) {
    app.require_subcommand(1);
    app.footer(
        "Examples:\n"
        "  zpd demo                                two phones on an emulated network exchange a card\n"
        "  zpd serve --modem /dev/ttyUSB0 --activate\n"
        "  zpd send ada.vcf --to +12025550100\n"
        "  zpd inbox\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage. Each command has a --help of its own.");
    add_device_option(&app, context);
    add_demo_command(app, context);
    add_network_command(app, context);
    add_serve_command(app, context);
    add_send_commands(app, context);
    add_message_commands(app, context);
    add_inbox_commands(app, context);
    add_service_commands(app, context);
    add_settings_commands(app, context);
    add_ioctl_command(app, context);
    add_version_command(app, context);
}

int run(int argc, char** argv) {
    context_t context{
        .device = std::string(device_socket::default_device), .home = default_home(), .json = false, .run = nullptr};
    CLI::App app("Exchange contact cards with phones, by SMS, over a modem.", "zpd");
    add_commands(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? exit_done : exit_usage;
    }
    return context.run();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
