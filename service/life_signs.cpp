#include "service/life_signs.h"

namespace {

// Changes that come together are told together.
constexpr std::chrono::milliseconds burst{500};

}  // namespace

void life_signs_t::begin(look_t look) {
    if (manager_.is_there()) {
        look_ = std::move(look);
        manager_.tell("READY=1");
        thread_ = std::thread([this] { run(); });
    }
}

void life_signs_t::end() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_one();
    thread_.join();
    manager_.tell("STOPPING=1\nSTATUS=ends, when what is with the modem is sent");
}

void life_signs_t::wake() {
    {
        const std::lock_guard lock(mutex_);
        woken_ = true;
    }
    changed_.notify_one();
}

void life_signs_t::run() {
    while (true) {
        if (const std::optional<std::string> line = look_()) {
            manager_.tell("WATCHDOG=1");
            if (*line != told_) {
                told_ = *line;
                manager_.tell("STATUS=" + told_);
            }
        }
        wait();
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            return;
        }
        woken_ = false;
    }
}

// Twice in the time that the manager gives, so that one sign may come late; for ever when it does not ask.
void life_signs_t::wait() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, burst, [this] { return stopping_; });
    const auto awake = [this] { return woken_ || stopping_; };
    if (manager_.watchdog()) {
        changed_.wait_for(lock, *manager_.watchdog() / 2, awake);
    } else {
        changed_.wait(lock, awake);
    }
}
