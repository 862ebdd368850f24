/// zpd serve.
#include "cli/command.h"
#include "cli/configuration.h"
#include "cli/output.h"
#include "cli/service_connection.h"
#include "service/device_manager.h"

namespace {

constexpr uint64_t least_log_size = uint64_t{64} << 10;  // octets, some hundred lines
constexpr uint64_t most_log_size = uint64_t{1} << 40;

void set_limits(const std::vector<std::string>& assignments) {
    for (const std::string& assignment : assignments) {
        if (const std::string error = set_radio_limit(assignment); !error.empty()) {
            throw CLI::ValidationError("--set", error);
        }
    }
}

std::string serve_help() {
    return "Runs in the foreground until SIGINT or SIGTERM, and prints a line that begins with\n"
           "\"ready\" when the device answers. /dev/serial/by-id has names that stay the same when a\n"
           "modem is plugged in again; one that was named otherwise is looked for under its name there\n"
           "as well.\n"
           "\n"
           "A PIN is entered while the SIM has two tries or more, and no value that it rejected is\n"
           "entered again. 'zpd doctor' tells the tries.\n"
           "\n"
           "The program of --on-card is told of the card by ZPD_CARD_FILE, _NUMBER, _SENDER, _TIME (in\n"
           "seconds since 1970) and _NAME, and of the home, where it starts, by ZPD_HOME. Programs run one\n"
           "at a time, two minutes at most. One that does not end with status 0 is run again at the next\n"
           "start of the service, three times in all. examples/on-card has some.\n"
           "\n"
           "Options come from the configuration, too: from the section [serve] of the user's file, or from\n"
           "that of --config, as a service of the system has one, without sections. What is wrong there is\n"
           "told with its line, and nothing starts. --print-config writes such a file.\n"
           "\n"
           "Times and limits for --set (docs/radio.md has all of them):\n" +
           radio_limits() +
           "\nExamples:\n"
           "  zpd serve --modem /dev/ttyUSB0 --activate\n"
           "  zpd serve --modem /dev/ttyUSB0 --activate --print-config > ~/.config/zpd/config\n"
           "  zpd serve --modem /dev/serial/by-id/usb-... --home ~/phone2 --device ZPD2\n"
           "  zpd serve --modem /dev/ttyUSB0 --activate --on-card ~/bin/new-contact\n"
           "  zpd serve --modem /dev/ttyUSB0 --pin-file ~/.config/zpd-pin --set submission=120";
}

int run_serve(const context_t& context, serve_options_t& options) {
    if (options.modem.tty.empty()) {
        return fail_usage("the modem is missing: --modem TTY, or 'modem = TTY' in the configuration");
    }
    if (options.modem.pin_unchecked && options.modem.pin_file.empty()) {
        return fail_usage("--pin-unchecked needs --pin-file");
    }
    if (is_fleet(context.device)) {
        return fail_usage(fmt::format("{} is a fleet; a service serves a device of its own: --device NAME",
                                      shown_device(context.device)));
    }
    options.home = std::filesystem::absolute(context.home);
    options.device = context.device;
    if (!options.on_card.empty()) {
        options.on_card = std::filesystem::absolute(options.on_card);
    }
    return serve(options);
}

}  // namespace

void add_serve_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("serve", "Run the driver on a modem, its device open to the other commands");
    const auto options = std::make_shared<serve_options_t>();
    command->configurable();
    add_config_option(command);
    add_modem_options(command, options->modem);
    add_home_option(command, context);
    add_device_option(command, context);
    command->add_option("--group", options->group, "let the members of this group use the device too")
        ->type_name("NAME");
    command->add_option("--pin-file", options->modem.pin_file, "the SIM's PIN, in the first line of a file of your own")
        ->type_name("FILE")
        ->check(not_empty("the name of the PIN's file"));
    command->add_flag("--pin-unchecked", options->modem.pin_unchecked,
                      "enter the PIN once also where the modem does not tell how many tries are left");
    command
        ->add_option("--announcement", options->modem.announcement,
                     "how the modem tells new messages, the parameters of AT+CNMI (default: what suits it)")
        ->type_name("MODE,MT,BM,DS,BFR")
        ->check(CLI::Validator(check_announcement, ""));
    command
        ->add_option_function<std::vector<std::string>>("--set", set_limits,
                                                        "a time or limit of the radio; may come again")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command
        ->add_option("--log-size", options->log_size,
                     "how large the driver's log may be before a new one is begun; one older log is kept")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(CLI::Range(least_log_size, most_log_size).description(""))
        ->default_str("10MB");
    command
        ->add_option("--on-card", options->on_card,
                     "run this program for each card that is stored, with the card on its standard input")
        ->type_name("PROGRAM")
        ->check(not_empty("the name of the program"));
    command->add_flag("--activate", options->activate, "store received cards from now on, as 'zpd activation on' does");
    command->footer(serve_help());
    const auto print = std::make_shared<bool>(false);
    command
        ->add_flag("--print-config", *print,
                   "print what holds, as a configuration file that says the same, with all options, and exit")
        ->configurable(false);
    command->callback([&context, command, options, print] {
        context.run = [&context, command, options, print] {
            if (*print) {
                say_octets(configuration_of(*command));
                return exit_done;
            }
            return run_serve(context, *options);
        };
    });
}
