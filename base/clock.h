/// The clock that every wait of this system runs on: milliseconds that never step back, which tests can move forward.
#pragma once

#include <cstdint>
#include <functional>

namespace base {

/// Milliseconds. Starts at 1 or more.
uint64_t tick64();

/// Calls `moved` each time a test moves the clock, for waits that sleep in the kernel (poll) to look again. The
/// subscription ends with the object. `moved` runs on the mover's thread, under a lock: it only wakes somebody.
class clock_watch_t {
  public:
    explicit clock_watch_t(std::function<void()> moved);
    ~clock_watch_t();
    clock_watch_t(const clock_watch_t&) = delete;
    clock_watch_t& operator=(const clock_watch_t&) = delete;
};

/// For tests only: moves tick64 forward; timed waits whose time has come then end.
void advance_clock(uint64_t milliseconds);

}  // namespace base
