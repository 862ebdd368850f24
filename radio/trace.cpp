#include "radio/trace.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <utility>

#include "base/clock.h"
#include "base/own_file.h"
#include "base/text.h"
#include "radio/result_codes.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr size_t most_waiting = 1'000'000;  // octets, some minutes of a talkative modem
constexpr size_t most_of_a_line = 4'000;    // what is longer is noise, and broken

constexpr char ctrl_z = 0x1A;
constexpr char escape = 0x1B;

// What transcript.h reads back.
std::string escaped(std::string_view text) {
    std::string out;
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool blank_at_end = c == ' ' && at + 1 == text.size();
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c < 0x20 || c >= 0x7F || c == '\\' || blank_at_end) {
            out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
        } else {
            out += c;
        }
    }
    return out;
}

// Where the values begin of a command that hands over a PIN, AT+CPIN="1234" or a maker's own.
size_t values_of_pin_command(std::string_view text) {
    const size_t name = text.find("PIN");
    return name == std::string_view::npos ? name : text.find('=', name);
}

// Every row of digits from there on.
std::string with_digits_masked(const std::string& text, size_t from) {
    std::string out = text.substr(0, from);
    for (size_t at = from; at < text.size(); ++at) {
        const bool digit = std::isdigit(static_cast<unsigned char>(text[at])) != 0;
        out += !digit ? std::string(1, text[at]) : out.ends_with('*') ? "" : "****";
    }
    return out;
}

std::string_view without_line_ends(std::string_view text) {
    const size_t first = text.find_first_not_of("\r\n");
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of("\r\n") + 1 - first);
}

bool holds_text(std::string_view text) {
    return !without_line_ends(text).empty();
}

}  // namespace

trace_t::~trace_t() {
    if (!thread_.joinable()) {
        return;
    }
    end_received();
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

std::string trace_t::open(const std::filesystem::path& file) {
    file_ = std::filesystem::absolute(file);
    begun_at_ = base::tick64();
    std::string error = begin_file();
    if (error.empty()) {
        open_ = true;
        thread_ = std::thread([this] { run(); });
    }
    return error;
}

// One that is there becomes the older one. Nothing is opened that was there before, and no link is followed.
std::string trace_t::begin_file() {
    const std::string tried = fmt::format("cannot record the dialogue in {}: ", file_.string());
    if (std::string problem = base::own_file_problem(file_); !problem.empty()) {
        return tried + problem;
    }
    if (rename(file_.c_str(), (file_.native() + ".1").c_str()) != 0 && errno != ENOENT) {
        return tried + base::errno_text(errno);
    }
    std::string problem;
    descriptor_ = base::open_own_file(file_, O_WRONLY | O_CREAT | O_EXCL, problem);
    written_ = 0;
    if (!descriptor_) {
        return tried + problem;
    }
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return write_out(fmt::format("# Begun {:%Y-%m-%d %H:%M:%S} UTC\n", now)) ? "" : tried + base::errno_text(errno);
}

void trace_t::sent(std::string_view octets) {
    if (!thread_.joinable()) {
        return;
    }
    for (const char c : octets) {
        if (c == ctrl_z) {
            sent_.insert(0, "^Z ");
        }
        if (c == '\r' || c == ctrl_z) {
            const size_t values = values_of_pin_command(sent_);
            pin_sent_ = values != std::string::npos;
            answered_ = false;
            add_line(">", pin_sent_ ? with_digits_masked(sent_, values) : sent_);
            sent_.clear();
        } else if (c != escape) {  // ends a text entry, should there be one
            sent_ += c;
        }
    }
}

// A line of its own for each of the modem's, with the ends that it has; the prompt and a result in digits lack some.
void trace_t::received(std::string_view octets) {
    if (!thread_.joinable()) {
        return;
    }
    for (const char c : octets) {
        received_ += c;
        if ((c == '\n' && holds_text(received_)) || received_.size() >= most_of_a_line) {
            end_received();
        }
    }
    if (received_.ends_with("> ") || received_.ends_with('>') || (received_.ends_with('\r') && holds_text(received_))) {
        end_received();
    }
}

// What is no result may be an echo of the PIN, perhaps with its first octets lost.
void trace_t::end_received() {
    const bool may_be_echo = pin_sent_ && received_.find(": ") == std::string::npos;
    add_line(answered_ ? "!" : "<", may_be_echo ? with_digits_masked(received_, 0) : received_);
    answered_ = answered_ || final_result(without_line_ends(received_)).has_value();
    received_.clear();
}

void trace_t::add_line(std::string_view mark, const std::string& text) {
    if (text.empty()) {
        return;
    }
    const uint64_t now = base::tick64() - begun_at_;
    const std::string time =
        now != std::exchange(told_, now) ? fmt::format("# {}.{:03}\n", now / 1000, now % 1000) : "";
    const std::string line = fmt::format("{}{} {}\n", time, mark, escaped(text));
    const std::lock_guard lock(mutex_);
    if (!open_ || waiting_.size() >= most_waiting) {
        return;
    }
    waiting_ += line;
    if (waiting_.size() >= most_waiting) {
        waiting_ += "# the disk is too slow: lines are missing here\n";
    }
    changed_.notify_one();
}

void trace_t::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        const std::string text = std::exchange(waiting_, {});
        if (text.empty()) {
            return;
        }
        lock.unlock();
        std::string error = written_ > size_ ? begin_file() : std::string();
        if (error.empty() && !write_out(text)) {
            error = fmt::format("cannot write {}: {}", file_.string(), base::errno_text(errno));
        }
        lock.lock();
        if (!error.empty()) {
            open_ = false;
            waiting_.clear();
            warn(error + "; the dialogue is recorded no further");
        }
    }
}

bool trace_t::write_out(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(descriptor_.get(), text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        written_ += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    return true;
}

}  // namespace radio
