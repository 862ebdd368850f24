#include "radio/trace.h"

#include <utility>

#include "radio/result_codes.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr size_t most_waiting = 1'000'000;  // octets, some minutes of a talkative modem

bool is_result(std::string_view line) {
    return final_result(line).has_value();
}

}  // namespace

trace_t::~trace_t() {
    if (!thread_.joinable()) {
        return;
    }
    record_->end_line();
    pass_on();
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

std::string trace_t::open(const std::filesystem::path& file) {
    std::string error = file_.open(file);
    if (error.empty()) {
        record_.emplace(is_result);
        open_ = true;
        thread_ = std::thread([this] { run(); });
    }
    return error;
}

void trace_t::sent(std::string_view octets) {
    if (record_) {
        record_->host_says(octets);
        pass_on();
    }
}

void trace_t::received(std::string_view octets) {
    if (record_) {
        record_->modem_says(octets);
        pass_on();
    }
}

void trace_t::pass_on() {
    const std::string lines = record_->take();
    const std::lock_guard lock(mutex_);
    if (lines.empty() || !open_ || waiting_.size() >= most_waiting) {
        return;
    }
    waiting_ += lines;
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
        const std::string error = file_.write(text);
        lock.lock();
        if (!error.empty()) {
            open_ = false;
            waiting_.clear();
            warn(error + "; the dialogue is recorded no further");
        }
    }
}

}  // namespace radio
