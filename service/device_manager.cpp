#include "service/device_manager.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <span>
#include <thread>

#include "base/end_signals.h"
#include "base/safe_text.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "device/device_socket.h"
#include "platform/linux/home.h"
#include "platform/linux/registry.h"
#include "radio/at_values.h"
#include "radio/attach_modem.h"
#include "radio/limits.h"
#include "service/device_server.h"
#include "service/instance_lock.h"
#include "service/listener.h"

namespace {

constexpr DWORD process_attach = 1;
constexpr DWORD process_detach = 0;

/// The driver, from its start to its end.
class loaded_driver_t {
  public:
    loaded_driver_t() {
        DllMain(nullptr, process_attach, nullptr);
        device_ = ZPD_Init(TEXT("Drivers\\BuiltIn\\ZPD"), nullptr);
    }
    ~loaded_driver_t() {
        ZPD_Deinit(device_);
        DllMain(nullptr, process_detach, nullptr);
    }
    loaded_driver_t(const loaded_driver_t&) = delete;
    loaded_driver_t& operator=(const loaded_driver_t&) = delete;

    DWORD device() const { return device_; }

    /// Empty, or why the device does not answer.
    std::string answers() const {
        std::array<BYTE, 4> version{};
        DWORD returned = 0;
        const bool done = control(ZPD_IOCTL_VERSION, {}, version, &returned);
        if (!done || returned != version.size() || version[0] != ZPD_INTERFACE_VERSION) {
            return fmt::format("the driver does not answer (error {})", GetLastError());
        }
        return {};
    }

    std::string activate() const {
        std::array<BYTE, 2> set_to_active{1, 1};
        std::array<BYTE, 1> active{};
        DWORD returned = 0;
        if (!control(ZPD_IOCTL_ACTIVATION, set_to_active, active, &returned) || active[0] != 1) {
            return fmt::format("the service could not be activated (error {})", GetLastError());
        }
        return {};
    }

  private:
    bool control(DWORD code, std::span<BYTE> input, std::span<BYTE> output, DWORD* returned) const {
        const DWORD open = ZPD_Open(device_, 0, 0);
        const BOOL done = ZPD_IOControl(open, code, input.data(), static_cast<DWORD>(input.size()), output.data(),
                                        static_cast<DWORD>(output.size()), returned);
        ZPD_Close(open);
        return done != FALSE;
    }

    DWORD device_ = 0;
};

/// Stores the activation before the driver starts: what waits on the modem comes as soon as it has, and would be
/// dropped. Empty, or why not.
std::string preset_activation() {
    constexpr std::array<BYTE, 4> active{1, 0, 0, 0};
    HKEY key = nullptr;
    LONG error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT(ZPD_SETTINGS_KEY), 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                 nullptr, &key, nullptr);
    if (error == ERROR_SUCCESS) {
        error = RegSetValueExW(key, TEXT(ZPD_SETTING_ACTIVATED), 0, REG_DWORD, active.data(), active.size());
        RegCloseKey(key);
    }
    return error == ERROR_SUCCESS ? std::string()
                                  : fmt::format("the activation cannot be stored in {}: end what holds the file",
                                                (platform::home() / "registry.sqlite").native());
}

/// The modem, taken for this process until the end of the scope.
class attached_modem_t {
  public:
    attached_modem_t() = default;
    ~attached_modem_t() { radio::detach_modem(); }
    attached_modem_t(const attached_modem_t&) = delete;
    attached_modem_t& operator=(const attached_modem_t&) = delete;
};

/// Attaches the modem. One of `signals` ends the wait for a modem that does not answer.
std::string attach(const radio::modem_options_t& modem, const base::end_signals_t& signals) {
    const base::descriptor_t over(eventfd(0, EFD_CLOEXEC));
    std::thread watcher([&] {
        std::array<pollfd, 2> ready{pollfd{signals.descriptor(), POLLIN, 0}, {over.get(), POLLIN, 0}};
        while (poll(ready.data(), ready.size(), -1) < 0 && errno == EINTR) {
        }
        if (ready[0].revents != 0) {
            radio::cancel_attach();
        }
    });
    std::string error = radio::attach_modem(modem);
    eventfd_write(over.get(), 1);
    watcher.join();
    return error;
}

int fail(const std::string& error) {
    std::fputs(fmt::format("zpd serve: {}\n", base::escaped(error)).c_str(), stderr);
    return 1;
}

int serve_driver(const serve_options_t& options, const listener_t& listener, const base::end_signals_t& signals) {
    if (options.activate) {
        if (const std::string error = preset_activation(); !error.empty()) {
            return fail(error);
        }
    }
    const loaded_driver_t driver;
    if (const std::string error = driver.answers(); !error.empty()) {
        return fail(error);
    }
    if (options.activate) {
        if (const std::string error = driver.activate(); !error.empty()) {
            return fail(error);
        }
    }
    device_server_t server(listener, driver.device());
    const std::string ready =
        fmt::format("ready: device {} on {}, home {}", options.device, options.modem.tty, options.home.native());
    std::fputs((base::escaped(ready) + '\n').c_str(), stdout);
    std::fflush(stdout);
    server.serve(signals.descriptor());
    radio::detach_modem();  // before the driver goes: what came after it would be lost, and gone from the modem too
    return 0;
}

}  // namespace

std::string set_radio_limit(std::string_view assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string_view::npos) {
        return fmt::format("'{}' is not of the form NAME=VALUE", assignment);
    }
    return radio::set_limit(assignment.substr(0, equals), assignment.substr(equals + 1));
}

std::string radio_limits() {
    std::string lines;
    for (const radio::limit_row_t& row : radio::limits()) {
        if (row.settable()) {
            lines += fmt::format("  {:<16}{} {}\n", row.name, row.initial, row.unit);
        }
    }
    return lines;
}

std::string check_announcement(const std::string& text) {
    return !text.empty() && radio::announcement_of(text)
               ? std::string()
               : fmt::format("'{}' are no parameters of AT+CNMI: numbers between commas are, such as 2,1,0,0,0", text);
}

int serve(const serve_options_t& options) {
    umask(0077);  // what a phone receives is its user's alone
    const base::end_signals_t signals;
    if (const std::string error = platform::set_home(options.home); !error.empty()) {
        return fail(error);
    }
    instance_lock_t home_lock;
    if (const std::string error =
            home_lock.take(options.home / "lock", fmt::format("home {} is already in use", options.home.native()));
        !error.empty()) {
        return fail(error);
    }
    if (const std::string error = platform::open_registry(); !error.empty()) {
        return fail(error + "; put back a copy of it, or move it away to begin with default settings");
    }
    listener_t listener;
    if (const std::string error = listener.open(options.device, options.group); !error.empty()) {
        return fail(error);
    }
    const attached_modem_t modem;
    const std::string error = attach(options.modem, signals);
    if (signals.wait(0)) {
        return 0;
    }
    if (!error.empty()) {
        return fail(error);
    }
    return serve_driver(options, listener, signals);
}
