#include "tests/radio/scripted_modem.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace {

constexpr auto patience = std::chrono::seconds(10);

std::string lines(const std::string& text) {
    return "\r\n" + text + "\r\n\r\nOK\r\n";
}

}  // namespace

scripted_modem_t::scripted_modem_t() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    std::array<char, 64> name{};
    if (grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name.data(), name.size()) != 0) {
        std::abort();
    }
    tty_ = name.data();
    stop_ = eventfd(0, EFD_NONBLOCK);
    on("AT+CMGF?", lines("+CMGF: 0"));
    on("AT+CPIN?", lines("+CPIN: READY"));
    on("AT+CPMS=?", lines("+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\"),(\"SM\")"));
    on("AT+CPMS?", lines("+CPMS: \"ME\",0,20,\"ME\",0,20,\"SM\",0,20"));
    on("AT+CNMI=?", lines("+CNMI: (0-2),(0-3),(0,2),(0-2),(0,1)"));
    on("AT+CSMS=?", lines("+CSMS: (0,1)"));
    on("AT+CMMS=?", "\r\nERROR\r\n");
    on("AT+CEREG=2", "\r\nERROR\r\n");
    on("AT+CEREG=1", "\r\nERROR\r\n");
    on("AT+CREG?", lines("+CREG: 2,1,\"00C3\",\"A12B\",0"));
    on("AT+CMGS", "\r\n> ");
    on_entry(lines("+CMGS: 7"));
    thread_ = std::thread([this] { serve(); });
}

scripted_modem_t::~scripted_modem_t() {
    eventfd_write(stop_, 1);
    thread_.join();
    hang_up();
    close(stop_);
}

void scripted_modem_t::on(const std::string& command, const std::string& reply) {
    const std::lock_guard lock(mutex_);
    replies_[command] = reply;
}

void scripted_modem_t::once(const std::string& command, const std::string& reply) {
    const std::lock_guard lock(mutex_);
    next_replies_[command].push_back(reply);
}

void scripted_modem_t::say(const std::string& text) {
    const std::lock_guard lock(mutex_);
    write_out(text);
}

void scripted_modem_t::hang_up() {
    const std::lock_guard lock(mutex_);
    if (!hung_up_) {
        hung_up_ = true;
        close(master_);
    }
}

bool scripted_modem_t::heard(const std::string& command, size_t times) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience,
                             [&] { return static_cast<size_t>(std::ranges::count(log_, command)) >= times; });
}

bool scripted_modem_t::entered(size_t times) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] {
        return static_cast<size_t>(std::ranges::count(
                   log_, '>', [](const std::string& line) { return line.empty() ? '\0' : line.front(); })) >= times;
    });
}

std::vector<std::string> scripted_modem_t::log() {
    const std::lock_guard lock(mutex_);
    return log_;
}

size_t scripted_modem_t::count(const std::string& command) {
    const std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::ranges::count(log_, command));
}

void scripted_modem_t::serve() {
    while (true) {
        pollfd descriptors[2] = {{stop_, POLLIN, 0}, {master_, POLLIN, 0}};
        {
            const std::lock_guard lock(mutex_);
            descriptors[1].fd = hung_up_ ? -1 : master_;
        }
        // A master whose tty nobody has open is always ready, with nothing to read: look again in a moment.
        poll(descriptors, 2, 5);
        if (descriptors[0].revents != 0) {
            return;
        }
        if ((descriptors[1].revents & POLLHUP) != 0) {
            poll(descriptors, 1, 1);
        }
        const std::lock_guard lock(mutex_);
        std::array<char, 512> buffer{};
        const ssize_t count = hung_up_ ? 0 : read(master_, buffer.data(), buffer.size());
        std::for_each_n(buffer.begin(), std::max<ssize_t>(count, 0), [this](char octet) { take(octet); });
    }
}

void scripted_modem_t::take(char octet) {
    constexpr char ctrl_z = 0x1A;
    constexpr char escape = 0x1B;
    if (octet == escape) {
        entering_ = false;
        input_.clear();
    } else if (entering_ && octet == ctrl_z) {
        entering_ = false;
        answer(entry, entry + std::exchange(input_, {}));
    } else if (!entering_ && octet == '\r') {
        const std::string line = std::exchange(input_, {});
        const bool submits = line.starts_with("AT+CMGS=");
        entering_ = answer(submits ? "AT+CMGS" : line, line).find('>') != std::string::npos && submits;
    } else {
        input_ += octet;
    }
}

std::string scripted_modem_t::answer(const std::string& key, const std::string& logged) {
    std::deque<std::string>& next = next_replies_[key];
    const auto fixed = replies_.find(key);
    std::string reply = fixed == replies_.end() ? "\r\nOK\r\n" : fixed->second;
    if (!next.empty()) {
        reply = next.front();
        next.pop_front();
    }
    write_out(reply);
    log_.push_back(logged);
    changed_.notify_all();
    return reply;
}

void scripted_modem_t::write_out(const std::string& text) {
    if (!hung_up_ && !text.empty() && write(master_, text.data(), text.size()) < 0) {
        std::abort();
    }
}
