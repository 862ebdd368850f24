#include "service/device_manager.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <thread>

#include "base/end_signals.h"
#include "base/told_line.h"
#include "device/service_requests.h"
#include "platform/linux/appended_file.h"
#include "platform/linux/home.h"
#include "platform/linux/registry.h"
#include "radio/at_values.h"
#include "radio/attach_modem.h"
#include "radio/limits.h"
#include "radio/sim_pin.h"
#include "service/device_server.h"
#include "service/feeder.h"
#include "service/inbox.h"
#include "service/inbox_requests.h"
#include "service/instance_lock.h"
#include "service/life_signs.h"
#include "service/listener.h"
#include "service/loaded_driver.h"
#include "service/news.h"
#include "service/on_card.h"
#include "service/outbox.h"
#include "service/outbox_requests.h"
#include "service/phone_home.h"
#include "service/replies.h"
#include "service/service_manager.h"
#include "service/service_status.h"

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
    base::tell_line(stderr, base::priority_t::error, "zpd serve: " + error);
    return 1;
}

/// A PIN that cannot be had is told at once, not when a SIM wants it, which may be at a start that nobody sees.
std::string pin_problem(const radio::modem_options_t& modem) {
    return modem.pin_file.empty() ? std::string() : radio::read_pin(modem.pin_file).error;
}

/// A line for who runs the service.
void tell(base::priority_t priority, const std::string& text) {
    base::tell_line(stdout, priority, text);
}

void warn_when_inactive(const loaded_driver_t& driver) {
    if (driver.is_active() == false) {
        base::tell_line(stderr, base::priority_t::warning,
                        "zpd serve: activation is off, received cards are dropped; zpd activation on");
    }
}

/// What is there before the modem, and until it is gone.
struct post_t {
    life_signs_t signs;
    outbox_t outbox{[this](base::priority_t priority, const std::string& text) {
        tell(priority, text);
        signs.wake();
    }};
    inbox_t inbox;
    feeder_t feeder{outbox};
    news_t news{outbox, feeder.in_flight(), inbox};

    post_t(const std::filesystem::path& home, const service_manager_t& manager) : signs(manager), inbox(home) {}
};

/// The driver is asked and fed until the end of the scope. What is with the radio by then goes out or fails before the
/// driver goes: what came later would be lost, and gone from the modem too.
class driven_post_t {
  public:
    driven_post_t(post_t& post, const loaded_driver_t& driver) : post_(post) {
        post_.news.begin(driver);
        post_.feeder.start(driver);
    }
    ~driven_post_t() {
        post_.feeder.stop();
        radio::detach_modem();
        post_.feeder.finish();
        post_.news.end();
    }
    driven_post_t(const driven_post_t&) = delete;
    driven_post_t& operator=(const driven_post_t&) = delete;

  private:
    post_t& post_;
};

void tell_what_is_left(outbox_t& outbox) {
    const outbox_t::counts_t counts = outbox.counts();
    if (const int64_t left = counts.waiting + counts.sending - counts.leased; left != 0) {
        tell(base::priority_t::info,
             left == 1 ? "1 card waits in the outbox and is sent at the next start"
                       : fmt::format("{} cards wait in the outbox and are sent at the next start", left));
    }
}

/// On the device's socket.
void answer_clients(const serve_options_t& options, const listener_t& listener, const base::end_signals_t& signals,
                    post_t& post, const loaded_driver_t& driver) {
    const outbox_requests_t outbox_requests(post.outbox, post.feeder, driver);
    const auto answer = [&](const device::request_t& request) -> std::optional<device::reply_t> {
        if (request.code == device::service_status && request.input.empty()) {
            return json_reply(service_status(options, driver, post.outbox));
        }
        if (request.code == device::inbox_list || request.code == device::inbox_octets ||
            request.code == device::inbox_remove) {
            return answer_inbox_request(post.inbox, request.code, request.input, request.output_capacity);
        }
        return outbox_requests.answer(request);
    };
    device_server_t server(listener, driver.device(), answer);
    tell(base::priority_t::info,
         fmt::format("ready: device {} on {}, home {}", options.device, options.modem.tty, options.home.native()));
    post.signs.begin([&] { return service_line(driver, post.outbox); });
    server.serve(signals.descriptor());
    post.signs.end();
    post.outbox.end_waits();
    server.close();
}

int serve_driver(const serve_options_t& options, const listener_t& listener, const base::end_signals_t& signals,
                 post_t& post) {
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
    warn_when_inactive(driver);
    {
        const driven_post_t driven(post, driver);
        answer_clients(options, listener, signals, post, driver);
    }
    tell_what_is_left(post.outbox);
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
            lines += fmt::format("  {:<18}{} {}\n", row.name, row.initial, row.unit);
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
    const service_manager_t manager;
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
    post_t post(platform::home(), manager);
    if (const std::string error = post.outbox.open(platform::home()); !error.empty()) {
        return fail(error);
    }
    std::optional<on_card_t> on_card;
    if (!options.on_card.empty()) {
        on_card.emplace(post.inbox, options.on_card, platform::home(), [&](const std::string& text) {
            post.outbox.note({"service", text, nlohmann::ordered_json::object(), base::priority_t::warning});
        });
        if (const std::string error = on_card->start(); !error.empty()) {
            return fail(error);
        }
        post.news.on_stored([&] { on_card->look(); });
    }
    radio::modem_options_t modem_options = options.modem;
    modem_options.observer = &post.news;
    const attached_modem_t modem;
    manager.tell("STATUS=looks for the modem on " + options.modem.tty);
    const std::string error = attach(modem_options, signals);
    if (signals.wait(0)) {
        return 0;
    }
    if (!error.empty()) {
        return fail(error);
    }
    const int status = serve_driver(options, listener, signals, post);
    platform::checkpoint_registry();
    return status;
}
