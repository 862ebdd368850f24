#include "service/device_manager.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "base/end_signals.h"
#include "base/safe_text.h"
#include "platform/linux/appended_file.h"
#include "platform/linux/home.h"
#include "platform/linux/registry.h"
#include "radio/at_values.h"
#include "radio/attach_modem.h"
#include "radio/limits.h"
#include "radio/sim_pin.h"
#include "service/device_server.h"
#include "service/dropped_cards.h"
#include "service/inbox.h"
#include "service/instance_lock.h"
#include "service/listener.h"
#include "service/loaded_driver.h"
#include "service/phone_home.h"
#include "service/radio_status.h"

namespace {

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

/// A PIN that cannot be had is told at once, not when a SIM wants it, which may be at a start that nobody sees.
std::string pin_problem(const radio::modem_options_t& modem) {
    return modem.pin_file.empty() ? std::string() : radio::read_pin(modem.pin_file).error;
}

/// See device::service_status.
std::string status_of(const serve_options_t& options, const loaded_driver_t& driver) {
    const radio::card_counts_t counts = radio::card_counts();
    const std::optional<bool> active = driver.is_active();
    const nlohmann::ordered_json status = {
        {"device", options.device},
        {"modem", options.modem.tty},
        {"home", options.home.native()},
        {"active", active ? nlohmann::ordered_json(*active) : nullptr},
        {"cards", {{"stored", counts.stored}, {"dropped", counts.dropped}, {"kept", counts.kept}}},
        {"datagrams", {{"incomplete", counts.incomplete}, {"given_up", counts.given_up}}},
        {"radio", radio_status()}};
    return status.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void warn_when_inactive(const loaded_driver_t& driver) {
    if (driver.is_active() == false) {
        std::fputs("zpd serve: activation is off, received cards are dropped; zpd activation on\n", stderr);
    }
}

/// The reasons for dropped cards are asked of this driver until the end of the scope.
class asked_driver_t {
  public:
    asked_driver_t(dropped_cards_t& dropped, const loaded_driver_t& driver) : dropped_(dropped) {
        dropped.ask(&driver);
    }
    ~asked_driver_t() { dropped_.ask(nullptr); }
    asked_driver_t(const asked_driver_t&) = delete;
    asked_driver_t& operator=(const asked_driver_t&) = delete;

  private:
    dropped_cards_t& dropped_;
};

int serve_driver(const serve_options_t& options, const listener_t& listener, const base::end_signals_t& signals,
                 dropped_cards_t& dropped) {
    if (options.activate) {
        if (const std::string error = preset_activation(); !error.empty()) {
            return fail(error);
        }
    }
    platform::bound_appended_files(options.log_size);
    const loaded_driver_t driver;
    if (const std::string error = driver.answers(); !error.empty()) {
        return fail(error);
    }
    if (options.activate) {
        if (const std::string error = driver.activate(); !error.empty()) {
            return fail(error);
        }
    }
    const asked_driver_t asked(dropped, driver);
    warn_when_inactive(driver);
    inbox_t inbox(options.home);
    device_server_t server(
        listener, driver.device(), [&] { return status_of(options, driver); }, inbox);
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
    instance_lock_t home_lock;
    if (const std::string error = take_home(options.home, home_lock); !error.empty()) {
        return fail(error);
    }
    if (const std::string error = pin_problem(options.modem); !error.empty()) {
        return fail(error);
    }
    listener_t listener;
    if (const std::string error = listener.open(options.device, options.group); !error.empty()) {
        return fail(error);
    }
    dropped_cards_t dropped;
    radio::modem_options_t modem_options = options.modem;
    modem_options.on_drop = [&](const std::string& sender) { dropped.tell(sender); };
    const attached_modem_t modem;
    const std::string error = attach(modem_options, signals);
    if (signals.wait(0)) {
        return 0;
    }
    if (!error.empty()) {
        return fail(error);
    }
    const int status = serve_driver(options, listener, signals, dropped);
    platform::checkpoint_registry();
    return status;
}
