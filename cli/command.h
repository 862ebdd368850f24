/// The commands of the program. Each `add_…` function adds one, or a group of them, to the command line; when the
/// command line is read, `context.run` holds what was chosen.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "client/client.h"
#include "radio/attach_modem.h"

/// $XDG_DATA_HOME/zpd, else ~/.local/share/zpd.
std::filesystem::path default_home();

/// $XDG_CONFIG_HOME/zpd/config, else ~/.config/zpd/config.
std::filesystem::path default_config();

/// $XDG_STATE_HOME/zpd, else ~/.local/state/zpd.
std::filesystem::path default_state();

/// $HOME, else what the user's account has.
std::filesystem::path user_home();

struct context_t {
    std::string device = std::string(client::default_device);
    std::string usual_device = device;  // the one when the command line names none
    std::filesystem::path home = default_home();
    bool json = false;
    std::function<int()> run{};  // returns the exit status
};

/// For an option whose value, `what` in words, may not be empty.
CLI::Validator not_empty(const std::string& what);

// The options that many commands share.
void add_device_option(CLI::App* command, context_t& context);
void add_home_option(CLI::App* command, context_t& context);
void add_json_option(CLI::App* command, context_t& context);
/// A level of the driver's log, by its name or number.
CLI::Option* add_log_level(CLI::App* command, const std::string& name, std::optional<int>& level,
                           const std::string& help);
/// --modem, which it returns, --baud, --flow and --trace; the options outlive the command.
CLI::Option* add_modem_options(CLI::App* command, radio::modem_options_t& modem);

/// Runs `use` on a connection to the device, or tells why there is none: a fleet has no driver.
int with_device(const context_t& context, const std::function<int(client::client_t&)>& use);
/// The same, on what --device names: a device or a fleet.
int with_service(const context_t& context, const std::function<int(client::service_t&)>& use);

/// A command that runs `use`, unless a home was named that does not exist; the default one may not exist yet. The
/// context must outlive it.
std::function<int()> on_home(const context_t& context, const std::function<int()>& use);

/// All that follow, and what the program says of itself.
void add_commands(CLI::App& app, context_t& context);

void add_demo_command(CLI::App& app, context_t& context);
void add_network_command(CLI::App& app, context_t& context);
void add_fault_command(CLI::App& app, context_t& context);
void add_serve_command(CLI::App& app, context_t& context);
void add_relay_command(CLI::App& app, context_t& context);
void add_fleet_command(CLI::App& app, context_t& context);
void add_doctor_command(CLI::App& app, context_t& context);
void add_send_command(CLI::App& app, context_t& context);
void add_count_command(CLI::App& app, context_t& context);
void add_outbox_commands(CLI::App& app, context_t& context);    // outbox …
void add_message_commands(CLI::App& app, context_t& context);   // list, status, close
void add_inbox_commands(CLI::App& app, context_t& context);     // inbox …
void add_service_commands(CLI::App& app, context_t& context);   // activation, apps, launch
void add_settings_commands(CLI::App& app, context_t& context);  // settings, contacts-setting
void add_events_command(CLI::App& app, context_t& context);
void add_log_command(CLI::App& app, context_t& context);
void add_ioctl_command(CLI::App& app, context_t& context);
void add_version_command(CLI::App& app, context_t& context);
void add_complete_command(CLI::App& app, context_t& context);  // for shells
