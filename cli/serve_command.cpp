/// zpd serve.
#include "cli/command.h"
#include "service/device_manager.h"

void add_serve_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("serve", "Run the driver on a modem, its device open to the other commands");
    const auto options = std::make_shared<serve_options_t>();
    command->add_option("--modem", options->modem, "the modem's tty")->type_name("TTY")->required();
    add_home_option(command, context);
    add_device_option(command, context);
    command->add_option("--group", options->group, "let the members of this group use the device too")
        ->type_name("NAME");
    command->add_flag("--activate", options->activate, "store received cards from now on, as 'zpd activation on' does");
    command->footer(
        "Runs in the foreground until SIGINT or SIGTERM, and prints a line that begins with\n"
        "\"ready\" when the device answers. /dev/serial/by-id has names that stay the same when a\n"
        "modem is plugged in again.\n\nExamples:\n"
        "  zpd serve --modem /dev/ttyUSB0 --activate\n"
        "  zpd serve --modem /dev/serial/by-id/usb-... --home ~/phone2 --device ZPD2");
    command->callback([&context, options] {
        context.run = [&context, options] {
            options->home = std::filesystem::absolute(context.home);
            options->device = context.device;
            return serve(*options);
        };
    });
}
