#include "cli/command.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "cli/log_level.h"
#include "cli/output.h"
#include "cli/service_connection.h"

namespace {

/// zpd's in a folder of the user's files, which a variable may name.
std::filesystem::path user_folder(const char* variable, const char* otherwise) {
    const char* folder = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): before any thread
    return (folder != nullptr && folder[0] == '/' ? std::filesystem::path(folder) : user_home() / otherwise) / "zpd";
}

}  // namespace

std::filesystem::path user_home() {
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe)
    if (home == nullptr || home[0] == '\0') {
        const passwd* user = getpwuid(getuid());  // NOLINT(concurrency-mt-unsafe)
        home = user != nullptr ? user->pw_dir : "/";
    }
    return home;
}

std::filesystem::path default_home() {
    return user_folder("XDG_DATA_HOME", ".local/share");
}

std::filesystem::path default_config() {
    return user_folder("XDG_CONFIG_HOME", ".config") / "config";
}

std::filesystem::path default_state() {
    return user_folder("XDG_STATE_HOME", ".local/state");
}

CLI::Validator not_empty(const std::string& what) {
    return {[what](const std::string& text) { return text.empty() ? what + " is empty" : std::string(); }, ""};
}

void add_device_option(CLI::App* command, context_t& context) {
    command
        ->add_option("--device", context.device,
                     "the device: a name, or its socket's path, with a / or . in it; or nats://HOST[:PORT]/GROUP, "
                     "a fleet of modems")
        ->type_name("NAME|PATH|URL")
        ->check(not_empty("the device's name"))
        ->capture_default_str();
}

void add_home_option(CLI::App* command, context_t& context) {
    command->add_option("--home", context.home, "the phone's home folder")
        ->type_name("DIR")
        ->check(not_empty("the home folder's name"))
        ->capture_default_str();
}

void add_json_option(CLI::App* command, context_t& context) {
    command->add_flag("--json", context.json, "print one JSON object, for scripts")->configurable(false);
}

CLI::Option* add_log_level(CLI::App* command, const std::string& name, std::optional<int>& level,
                           const std::string& help) {
    return command
        ->add_option_function<std::string>(
            name, [&level](const std::string& text) { level = log_level_of(text); }, help)
        ->type_name("LEVEL")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return log_level_of(text) ? std::string()
                                          : fmt::format("'{}' is no level: {}", text, log_levels_help());
            },
            ""));
}

std::function<int()> on_home(const context_t& context, const std::function<int()>& use) {
    return [&context, use] {
        std::error_code failed;
        if (context.home != default_home() && !std::filesystem::exists(context.home, failed)) {
            return fail(fmt::format("there is no home folder {}", context.home.native()));
        }
        return use();
    };
}

CLI::Option* add_modem_options(CLI::App* command, radio::modem_options_t& modem) {
    auto* tty = command->add_option("--modem", modem.tty, "the modem's tty")
                    ->type_name("TTY")
                    ->check(not_empty("the modem's tty"));
    command->add_option("--baud", modem.line.baud, "the rate of the modem's line; a USB modem has none")
        ->type_name("RATE")
        ->check(CLI::IsMember(radio::baud_rates()).description(""))
        ->default_str(std::to_string(radio::line_settings_t::usual_baud));
    command
        ->add_option_function<std::string>(
            "--flow", [&modem](const std::string& flow) { modem.line.hardware_flow = flow == "hardware"; },
            "the flow control of the line: none, or hardware (RTS and CTS)")
        ->type_name("KIND")
        ->check(CLI::IsMember(std::vector<std::string>{"none", "hardware"}).description(""))
        ->default_str("none");
    command
        ->add_option("--trace", modem.trace,
                     "record what the modem and the radio say; numbers and messages are in it, the PIN is not")
        ->type_name("FILE")
        ->check(not_empty("the name of the trace"));
    return tty;
}

int with_device(const context_t& context, const std::function<int(client::client_t&)>& use) {
    auto connection = connect_device(context.device);
    return connection ? use(*connection) : fail(connection.failure().text);
}

int with_service(const context_t& context, const std::function<int(client::service_t&)>& use) {
    const auto connection = connect_service(context.device);
    return connection ? use(**connection) : fail(connection.failure().text);
}
