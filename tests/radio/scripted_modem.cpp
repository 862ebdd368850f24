#include "tests/radio/scripted_modem.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

scripted_modem_t::scripted_modem_t() {
    plug_in();
    replies_ = {
        {"AT+CMGF?", line_and_ok("+CMGF: 0")},
        {"AT+CSMS?", line_and_ok("+CSMS: 0,1,1,1")},
        {"AT+CMEE?", line_and_ok("+CMEE: 1")},
        {"AT+CSQ", line_and_ok("+CSQ: 20,99")},
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
    close(master_);
    close(host_side_);
}

void scripted_modem_t::on(const std::string& command, const std::string& reply) {
    const std::lock_guard lock(mutex_);
    replies_[command] = reply;
}

void scripted_modem_t::otherwise(const std::string& reply) {
    const std::lock_guard lock(mutex_);
    replies_.clear();
    next_replies_.clear();
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

void scripted_modem_t::set_delay(std::chrono::milliseconds delay) {
    const std::lock_guard lock(mutex_);
    delay_ = delay;
}

void scripted_modem_t::mute(bool mute) {
    const std::lock_guard lock(mutex_);
    muted_ = mute;
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
    close(std::exchange(host_side_, open(name.data(), O_RDWR | O_NOCTTY | O_NONBLOCK)));
    input_.clear();
    entering_ = false;
}

void scripted_modem_t::hang_up() {
    const std::lock_guard lock(mutex_);
    close(std::exchange(master_, -1));
}

bool scripted_modem_t::heard(const std::string& command, size_t times, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return count_of(command) >= times; });
}

std::vector<std::string> scripted_modem_t::log() {
    const std::lock_guard lock(mutex_);
    return log_;
}

std::string scripted_modem_t::line(size_t position, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return log_.size() > position; }) ? log_[position] : std::string();
}

size_t scripted_modem_t::count(const std::string& command) {
    const std::lock_guard lock(mutex_);
    return count_of(command);
}

size_t scripted_modem_t::count_of(const std::string& command) const {
    return static_cast<size_t>(std::ranges::count_if(
        log_, [&](const std::string& line) { return line == command || key_of(line) == command; }));
}

std::string scripted_modem_t::key_of(const std::string& line) {
    const bool enters = line.starts_with("AT+CMGS=") || line.starts_with("AT+CMGW=");
    return line.starts_with('>') ? ">" : line.substr(0, enters ? 7 : line.size());
}

void scripted_modem_t::serve(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        pollfd descriptor{-1, POLLIN, 0};
        {
            const std::lock_guard lock(mutex_);
            descriptor.fd = master_;
        }
        poll(&descriptor, 1, 5);
        const std::lock_guard lock(mutex_);
        write_delayed();
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
        answer(">" + std::exchange(input_, {}));
    } else if (!entering_ && octet == '\r') {
        const std::string line = std::exchange(input_, {});
        const bool prompts = answer(line).find('>') != std::string::npos;
        entering_ = prompts && key_of(line) != line;
    } else {
        input_ += octet;
    }
}

std::string scripted_modem_t::answer(const std::string& line) {
    const std::string key = key_of(line);
    std::deque<std::string>& next = next_replies_[key];
    const auto fixed = replies_.find(key);
    std::string reply = fixed != replies_.end() ? fixed->second : line.ends_with('?') ? error : otherwise_;
    if (!next.empty()) {
        reply = next.front();
        next.pop_front();
    }
    this->reply(reply);
    log_.push_back(line);
    changed_.notify_all();
    return reply;
}

void scripted_modem_t::reply(const std::string& text) {
    if (!muted_) {
        delayed_.emplace_back(std::chrono::steady_clock::now() + delay_, text);
        write_delayed();
    }
}

void scripted_modem_t::write_delayed() {
    while (!delayed_.empty() && delayed_.front().first <= std::chrono::steady_clock::now()) {
        write_out(delayed_.front().second);
        delayed_.pop_front();
    }
}

void scripted_modem_t::write_out(const std::string& text) {
    for (size_t at = 0, size = 0; master_ >= 0 && at < text.size(); at += size) {
        const size_t line_end = std::min(text.find('\n', at), text.size() - 1) + 1;
        size = pace_ == pace_t::octet ? 1 : (pace_ == pace_t::line ? line_end : text.size()) - at;
        const ssize_t written = write(master_, &text[at], size);
        if (written < 0 && errno != EAGAIN) {
            std::abort();
        }
        size = written < 0 ? 0 : static_cast<size_t>(written);  // the rest waits for room, or for nobody any more
        if (size == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (pace_ != pace_t::whole) {
            wait_until_read();
        }
    }
}

// The kernel tells nobody when a tty has been read to its end: it has to be asked, for a second at most.
void scripted_modem_t::wait_until_read() const {
    int unread = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (ioctl(host_side_, FIONREAD, &unread) == 0 && unread > 0 && std::chrono::steady_clock::now() < until) {
        std::this_thread::yield();
    }
}
