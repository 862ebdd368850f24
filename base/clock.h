/// The clock that every wait of this system runs on: milliseconds that never step back, which tests can move forward.
#pragma once

#include <cstdint>
#include <functional>
#include <set>

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

/// Stands beside a wait that ends at this tick by itself, for as long as it lasts: tests look how far the clock may
/// move before somebody would wake.
class timed_wait_t {
  public:
    explicit timed_wait_t(uint64_t until);
    ~timed_wait_t();
    timed_wait_t(const timed_wait_t&) = delete;
    timed_wait_t& operator=(const timed_wait_t&) = delete;

  private:
    const std::multiset<uint64_t>::const_iterator place_;
};

/// For tests only: moves tick64 forward; timed waits whose time has come then end.
void advance_clock(uint64_t milliseconds);
/// For tests only: when the first of the timed waits ends; UINT64_MAX when none does.
uint64_t next_deadline();

}  // namespace base
