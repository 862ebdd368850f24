/// All commands together, and zpd help, which tells of them.
#include <cstdio>

#include "cli/command.h"
#include "cli/output.h"
#include "cli/usage_error.h"

namespace {

/// The help of `app` by itself would be that of the command that was given, of this one, so it is not asked.
int print_help(const CLI::App& app, const std::vector<std::string>& names) {
    const CLI::App* about = &app;
    std::string above;
    for (const std::string& name : names) {
        const auto found = about->get_subcommands([&](const CLI::App* one) { return one->get_name() == name; });
        if (found.empty()) {
            return fail_usage(no_command(*about, name));
        }
        above += about->get_name() + ' ';
        about = found.front();
    }
    const auto formatter = app.get_formatter();
    std::fputs(formatter->make_help(about, above + about->get_name(), CLI::AppFormatMode::Normal).c_str(), stdout);
    return exit_done;
}

void add_help_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("help", "Print this help, or a command's");
    const auto names = std::make_shared<std::vector<std::string>>();
    command->add_option("command", *names, "the command, and one below it")->type_name("COMMAND");
    command->footer("Examples:\n  zpd help send\n  zpd help inbox export");
    command->callback([&app, &context, names] { context.run = [&app, names] { return print_help(app, *names); }; });
}

}  // namespace

void add_commands(CLI::App& app, context_t& context) {
    app.name("zpd");
    app.description("Exchange contact cards with phones, by SMS, over a modem.");
    app.failure_message(usage_error);
    app.require_subcommand(0, 1);  // none, or what is none of ours, gets words of our own
    app.set_version_flag("-V,--version", "zpd " ZPD_PROGRAM_VERSION, "Print the program's version and exit");
    app.footer(
        "Examples:\n"
        "  zpd demo                                two phones on an emulated network exchange a card\n"
        "  zpd serve --modem /dev/ttyUSB0 --activate\n"
        "  zpd send ada.vcf --to +12025550100\n"
        "  zpd inbox\n"
        "\n"
        "Files:\n"
        "  ~/.config/zpd/config     the user's configuration, see zpd.conf(5)\n"
        "  /etc/zpd/NAME.conf       the configuration of the system's service NAME\n"
        "  ~/.local/share/zpd       the phone's home: received cards, the outbox, the driver's log\n"
        "  /run/zpd/NAME            the device of a service of the system, or of root\n"
        "\n"
        "Environment:\n"
        "  XDG_CONFIG_HOME, XDG_DATA_HOME\n"
        "                           in the place of ~/.config and ~/.local/share\n"
        "  XDG_RUNTIME_DIR          holds the devices of the user's own services, in its folder zpd;\n"
        "                           without it they are in /tmp/zpd-UID\n"
        "\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.\n"
        "\n"
        "Each command has a --help of its own.");
    add_device_option(&app, context);
    add_demo_command(app, context);
    add_network_command(app, context);
    add_fault_command(app, context);
    add_serve_command(app, context);
    add_relay_command(app, context);
    add_fleet_command(app, context);
    add_doctor_command(app, context);
    add_send_command(app, context);
    add_count_command(app, context);
    add_outbox_commands(app, context);
    add_message_commands(app, context);
    add_inbox_commands(app, context);
    add_service_commands(app, context);
    add_settings_commands(app, context);
    add_events_command(app, context);
    add_log_command(app, context);
    add_ioctl_command(app, context);
    add_version_command(app, context);
    add_help_command(app, context);
    add_complete_command(app, context);
}
