#include "tests/radio/scripted_modem.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

scripted_modem_t::scripted_modem_t() {
    plug_in();
    replies_ = {
        {"AT+CMGF?", line_and_ok("+CMGF: 0")},
        {"AT+CPIN?", line_and_ok("+CPIN: READY")},
        {"AT+CPMS=?", line_and_ok("+CPMS: (\"SM\",\"ME\"),(\"SM\",\"ME\"),(\"SM\")")},
        {"AT+CPMS?", line_and_ok("+CPMS: \"ME\",0,20,\"ME\",0,20,\"SM\",0,20")},
        {"AT+CNMI=?", line_and_ok("+CNMI: (0-2),(0-3),(0,2),(0-2),(0,1)")},
        {"AT+CSMS=?", line_and_ok("+CSMS: (0,1)")},
        {"AT+CMMS=?", "\r\nERROR\r\n"},
        {"AT+CEREG=2", "\r\nERROR\r\n"},
        {"AT+CEREG=1", "\r\nERROR\r\n"},
        {"AT+CREG?", line_and_ok("+CREG: 2,1,\"00C3\",\"A12B\",0")},
        {"AT+CMGS", "\r\n> "},
        {">", line_and_ok("+CMGS: 7")},
    };
    thread_ = std::jthread([this](const std::stop_token& stop) { serve(stop); });
}

scripted_modem_t::~scripted_modem_t() {
    thread_.request_stop();
    thread_.join();
    hang_up();
}

void scripted_modem_t::on(const std::string& command, const std::string& reply) {
    const std::lock_guard lock(mutex_);
    replies_[command] = reply;
}

void scripted_modem_t::otherwise(const std::string& reply) {
    const std::lock_guard lock(mutex_);
    replies_.clear();
    otherwise_ = reply;
}

void scripted_modem_t::set_pace(pace_t pace) {
    const std::lock_guard lock(mutex_);
    pace_ = pace;
}

void scripted_modem_t::once(const std::string& command, const std::string& reply) {
    const std::lock_guard lock(mutex_);
    next_replies_[command].push_back(reply);
}

void scripted_modem_t::say(const std::string& text) {
    const std::lock_guard lock(mutex_);
    entering_ = entering_ || text.ends_with("> ");
    write_out(text);
}

void scripted_modem_t::plug_in() {
    const std::lock_guard lock(mutex_);
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    std::array<char, 64> name{};
    if (grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name.data(), name.size()) != 0) {
        std::abort();
    }
    tty_ = name.data();
    input_.clear();
    entering_ = false;
}

void scripted_modem_t::hang_up() {
    const std::lock_guard lock(mutex_);
    if (master_ >= 0) {
        close(std::exchange(master_, -1));
    }
}

bool scripted_modem_t::heard(const std::string& command, size_t times, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return counts_[command] >= times; });
}

std::vector<std::string> scripted_modem_t::log() {
    const std::lock_guard lock(mutex_);
    return log_;
}

size_t scripted_modem_t::count(const std::string& command) {
    const std::lock_guard lock(mutex_);
    return counts_[command];
}

void scripted_modem_t::serve(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        pollfd descriptor{-1, POLLIN, 0};
        {
            const std::lock_guard lock(mutex_);
            descriptor.fd = master_;
        }
        poll(&descriptor, 1, 5);
        if ((descriptor.revents & POLLHUP) != 0) {
            // A master whose tty nobody has open is always ready, with nothing to read: look again in a moment.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const std::lock_guard lock(mutex_);
        std::array<char, 512> buffer{};
        const ssize_t count = read(master_, buffer.data(), buffer.size());
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
        answer(">", ">" + std::exchange(input_, {}));
    } else if (!entering_ && octet == '\r') {
        const std::string line = std::exchange(input_, {});
        const bool enters = line.starts_with("AT+CMGS=") || line.starts_with("AT+CMGW=");
        entering_ = answer(enters ? line.substr(0, 7) : line, line).find('>') != std::string::npos && enters;
    } else {
        input_ += octet;
    }
}

std::string scripted_modem_t::answer(const std::string& key, const std::string& logged) {
    std::deque<std::string>& next = next_replies_[key];
    const auto fixed = replies_.find(key);
    std::string reply = fixed == replies_.end() ? otherwise_ : fixed->second;
    if (!next.empty()) {
        reply = next.front();
        next.pop_front();
    }
    write_out(reply);
    log_.push_back(logged);
    ++counts_[logged];
    if (logged != key) {
        ++counts_[key];
    }
    changed_.notify_all();
    return reply;
}

void scripted_modem_t::write_out(const std::string& text) {
    for (size_t at = 0, size = 0; master_ >= 0 && at < text.size(); at += size) {
        const size_t line_end = std::min(text.find('\n', at), text.size() - 1) + 1;
        size = pace_ == pace_t::octet ? 1 : (pace_ == pace_t::line ? line_end : text.size()) - at;
        if (write(master_, &text[at], size) < 0) {
            std::abort();
        }
        if (pace_ != pace_t::whole) {
            wait_until_read();
        }
    }
}

// The kernel tells nobody when a tty has been read to its end: it has to be asked, for a second at most.
void scripted_modem_t::wait_until_read() const {
    const int tty = open(tty_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    int unread = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (ioctl(tty, FIONREAD, &unread) == 0 && unread > 0 && std::chrono::steady_clock::now() < until) {
        std::this_thread::yield();
    }
    close(tty);
}
