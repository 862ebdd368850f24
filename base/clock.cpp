#include "base/clock.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <utility>

namespace base {

namespace {

// What tests have added to the host's monotonic clock. It only grows.
std::atomic<uint64_t> moved_by{0};

struct watches_t {
    std::mutex mutex;
    std::map<const clock_watch_t*, std::function<void()>> moved;
};

watches_t& watches() {
    static auto& instance = *new watches_t;  // threads that outlive main may still wait
    return instance;
}

struct timed_waits_t {
    std::mutex mutex;
    std::multiset<uint64_t> until;
};

timed_waits_t& timed_waits() {
    static auto& instance = *new timed_waits_t;  // threads that outlive main may still wait
    return instance;
}

std::multiset<uint64_t>::const_iterator begin_wait(uint64_t until) {
    const std::lock_guard lock(timed_waits().mutex);
    return timed_waits().until.insert(until);
}

}  // namespace

// The monotonic clock, not the boot-time one: it stands still during suspend just as the kernel's timed waits do.
uint64_t tick64() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count() + 1 + moved_by.load();
}

clock_watch_t::clock_watch_t(std::function<void()> moved) {
    const std::lock_guard lock(watches().mutex);
    watches().moved.emplace(this, std::move(moved));
}

clock_watch_t::~clock_watch_t() {
    const std::lock_guard lock(watches().mutex);
    watches().moved.erase(this);
}

timed_wait_t::timed_wait_t(uint64_t until) : place_(begin_wait(until)) {}

timed_wait_t::~timed_wait_t() {
    const std::lock_guard lock(timed_waits().mutex);
    timed_waits().until.erase(place_);
}

uint64_t next_deadline() {
    const std::lock_guard lock(timed_waits().mutex);
    const std::multiset<uint64_t>& until = timed_waits().until;
    return until.empty() ? UINT64_MAX : *until.begin();
}

void advance_clock(uint64_t milliseconds) {
    const std::lock_guard lock(watches().mutex);
    moved_by.fetch_add(milliseconds);
    for (const auto& [watch, moved] : watches().moved) {
        moved();
    }
}

}  // namespace base
