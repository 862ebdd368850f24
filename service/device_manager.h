/// The device manager: loads the driver on a modem and serves its device until the process is told to end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "radio/attach_modem.h"

constexpr uint64_t default_log_size = uint64_t{10} << 20;

struct serve_options_t {
    radio::modem_options_t modem;
    std::filesystem::path home;            // the phone's home folder
    std::string device;                    // name or path, see device::is_path
    std::string group;                     // whose members may use the device too; empty for none
    bool activate = false;                 // switch the storing of received cards on
    std::filesystem::path on_card;         // an absolute path: a program to run for each stored card; empty for none
    uint64_t log_size = default_log_size;  // octets of the log file, and of the older one that is kept
};

/// Sets one of the radio's times and limits, from NAME=VALUE, before `serve`. Returns an empty text, or why not.
[[nodiscard]] std::string set_radio_limit(std::string_view assignment);
/// Those that may be set, a line each.
std::string radio_limits();

/// Whether the text can be modem_options_t::announcement, and not an empty one. Returns an empty text, or why not.
[[nodiscard]] std::string check_announcement(const std::string& text);

/// Runs in the foreground. Prints one line that begins with "ready" when the device answers and `activate` has taken
/// effect; what fails, on standard error. Ends on SIGINT, SIGTERM or SIGHUP, also while it waits for the modem to
/// answer, with its socket and locks removed. Returns the exit status: 0 after a clean end, 1 when it could not start.
/// To be called before the process has other threads.
int serve(const serve_options_t& options);
