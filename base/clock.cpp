#include "base/clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <utility>

namespace base {

namespace {

// Milliseconds that tests have added to the host's clocks. It only grows.
std::atomic<uint64_t> moved_by{0};

template <typename item_t>
struct list_t {
    std::mutex mutex;
    item_t* first = nullptr;
};

// Never destroyed: threads that outlive main may still wait.
list_t<clock_watch_t>& watches() {
    static auto& instance = *new list_t<clock_watch_t>;
    return instance;
}
list_t<timed_wait_t>& timed_waits() {
    static auto& instance = *new list_t<timed_wait_t>;
    return instance;
}

}  // namespace

// The monotonic clock, not the boot-time one: it stands still during suspend just as the kernel's timed waits do.
uint64_t tick64() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count() + 1 + moved_by.load();
}

int64_t unix_time() {
    return std::time(nullptr) + static_cast<int64_t>(moved_by.load() / 1000);
}

clock_watch_t::clock_watch_t(std::function<void()> moved) : moved_(std::move(moved)) {
    const std::lock_guard lock(watches().mutex);
    enter(watches().first);
}

clock_watch_t::~clock_watch_t() {
    const std::lock_guard lock(watches().mutex);
    leave();
}

timed_wait_t::timed_wait_t(uint64_t until) : until_(until) {
    const std::lock_guard lock(timed_waits().mutex);
    enter(timed_waits().first);
}

timed_wait_t::~timed_wait_t() {
    const std::lock_guard lock(timed_waits().mutex);
    leave();
}

uint64_t next_deadline() {
    const std::lock_guard lock(timed_waits().mutex);
    uint64_t next = UINT64_MAX;
    for (const timed_wait_t* wait = timed_waits().first; wait != nullptr; wait = wait->next()) {
        next = std::min(next, wait->until());
    }
    return next;
}

void advance_clock(uint64_t milliseconds) {
    const std::lock_guard lock(watches().mutex);
    moved_by.fetch_add(milliseconds);
    for (const clock_watch_t* watch = watches().first; watch != nullptr; watch = watch->next()) {
        watch->tell();
    }
}

}  // namespace base
