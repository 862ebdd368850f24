/// The clock that every wait of this system runs on: milliseconds that never step back. Tests can move it forward, and
/// the time of day with it.
#pragma once

#include <cstdint>
#include <functional>

namespace base {

/// Milliseconds. Starts at 1 or more.
uint64_t tick64();
/// Seconds since 1970, of the host's clock: it may step.
int64_t unix_time();

/// In a list with all others of its kind for as long as it lives. It needs no memory of its own: a wait must not fail.
template <typename item_t>
class listed_t {
  public:
    /// Under the lock of the list, as is `leave`.
    void enter(item_t*& first) {
        place_ = &first;
        next_ = first;
        if (next_ != nullptr) {
            next_->place_ = &next_;
        }
        first = static_cast<item_t*>(this);
    }
    void leave() {
        *place_ = next_;
        if (next_ != nullptr) {
            next_->place_ = place_;
        }
    }
    [[nodiscard]] item_t* next() const { return next_; }

  private:
    item_t* next_ = nullptr;
    item_t** place_ = nullptr;  // what points to this one
};

/// Calls `moved` each time a test moves the clock, for waits that sleep in the kernel (poll) to look again. The
/// subscription ends with the object. `moved` runs on the mover's thread, under a lock: it only wakes somebody.
class clock_watch_t : public listed_t<clock_watch_t> {
  public:
    explicit clock_watch_t(std::function<void()> moved);
    ~clock_watch_t();
    clock_watch_t(const clock_watch_t&) = delete;
    clock_watch_t& operator=(const clock_watch_t&) = delete;

    void tell() const { moved_(); }

  private:
    const std::function<void()> moved_;
};

/// Stands beside a wait that ends at this tick by itself, for as long as it lasts: tests look how far the clock may
/// move before somebody would wake.
class timed_wait_t : public listed_t<timed_wait_t> {
  public:
    explicit timed_wait_t(uint64_t until);
    ~timed_wait_t();
    timed_wait_t(const timed_wait_t&) = delete;
    timed_wait_t& operator=(const timed_wait_t&) = delete;

    [[nodiscard]] uint64_t until() const { return until_; }

  private:
    const uint64_t until_;
};

/// For tests only: moves both forward; timed waits whose time has come then end.
void advance_clock(uint64_t milliseconds);
/// For tests only: when the first of the timed waits ends; UINT64_MAX when none does.
uint64_t next_deadline();

}  // namespace base
