/// The `zpd` command.
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "cli/usage_error.h"

namespace {

int fail_usage(const std::string& text) {
    fail(text);
    return exit_usage;
}

int no_command(const CLI::App& app, const std::string& name) {
    const std::string hint = did_you_mean(app, name);
    return fail_usage(
        fmt::format("there is no command '{}'{} zpd --help", name, hint.empty() ? "; see" : hint + " See"));
}

/// The help of `app` by itself would be that of the command that was given, of this one, so it is not asked.
int print_help(const CLI::App& app, const std::vector<std::string>& names) {
    const CLI::App* about = &app;
    std::string above;
    for (const std::string& name : names) {
        const auto found = about->get_subcommands([&](const CLI::App* one) { return one->get_name() == name; });
        if (found.empty()) {
            return no_command(*about, name);
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

void add_commands(CLI::App& app, context_t& context) {
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
        "Exit status: 0 done, 1 failed, 2 wrong usage. Each command has a --help of its own.");
    add_device_option(&app, context);
    add_demo_command(app, context);
    add_network_command(app, context);
    add_fault_command(app, context);
    add_serve_command(app, context);
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
}

/// What the command line cannot be read as; or a demand for help or the version.
int explain(const CLI::App& app, const CLI::ParseError& error) {
    const auto remaining = app.remaining();
    if (app.get_subcommands().empty() && !remaining.empty() && !remaining.front().starts_with('-')) {
        return no_command(app, remaining.front());
    }
    std::ostringstream text;  // with the words of the command line in it
    const int status = app.exit(error, std::cout, text);
    std::fputs(base::escaped_lines(text.str()).c_str(), stderr);
    return status == 0 ? exit_done : exit_usage;
}

int run(int argc, char** argv) {
    context_t context{
        .device = std::string(client::default_device), .home = default_home(), .json = false, .run = nullptr};
    CLI::App app("Exchange contact cards with phones, by SMS, over a modem.", "zpd");
    add_commands(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return explain(app, error);
    }
    speak_as(command_line_of(app));
    return context.run ? context.run() : fail_usage("a command is missing; see zpd --help");
}

}  // namespace

int main(int argc, char** argv) {
    // What runs is ended in order, also when nobody reads what it says any more.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return finish(run(argc, argv));
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
