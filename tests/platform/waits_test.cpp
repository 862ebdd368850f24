#include <atomic>
#include <functional>
#include <thread>

#include "base/clock.h"
#include "tests/platform/fixture.h"

using platform::testing::advance_clock;
using platform::testing::advance_clock_to;

namespace {

constexpr DWORD hour = 3'600'000;

HANDLE new_event(BOOL manual_reset) {
    return CreateEventW(nullptr, manual_reset, FALSE, nullptr);
}

/// A wait on a thread of its own, and what became of it.
class waiter_t {
  public:
    waiter_t(HANDLE event, DWORD milliseconds)
        : thread_([this, event, milliseconds] {
              id_ = GetCurrentThreadId();
              outcome_ = poisoned([&] { return WaitForSingleObject(event, milliseconds); });
          }) {}
    /// Returns once it sleeps, in its wait.
    void await_sleep() const {
        for (std::string state; state != "S"; std::this_thread::yield()) {
            std::ifstream stat("/proc/self/task/" + std::to_string(id_) + "/stat");
            stat >> state >> state >> state;  // the id, the name, the state
        }
    }
    std::pair<DWORD, DWORD> outcome() {
        thread_.join();
        return outcome_;
    }

  private:
    std::pair<DWORD, DWORD> outcome_;
    std::atomic<DWORD> id_ = 0;
    std::thread thread_;  // last: it uses the others
};

}  // namespace

TEST(event, of_manual_reset_stays_set_and_of_auto_reset_lets_one_wait_through) {
    for (const BOOL manual : {TRUE, FALSE}) {
        HANDLE event = new_event(manual);
        EXPECT_EQ(poisoned([&] { return WaitForSingleObject(event, 0); }), std::pair(WAIT_TIMEOUT, poison));
        waiter_t first(event, INFINITE);
        EXPECT_EQ(poisoned([&] { return SetEvent(event); }), std::pair(TRUE, poison));
        EXPECT_EQ(first.outcome(), std::pair(WAIT_OBJECT_0, poison));
        EXPECT_EQ(WaitForSingleObject(event, 0), manual != FALSE ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        SetEvent(event);
        EXPECT_TRUE(ResetEvent(event));
        EXPECT_EQ(WaitForSingleObject(event, 5), WAIT_TIMEOUT);
        EXPECT_EQ(poisoned([&] { return EventModify(event, 1); }), std::pair(FALSE, ERROR_INVALID_PARAMETER));
        EXPECT_TRUE(CloseHandle(event));
    }
}

TEST(event, wait_runs_on_the_clock_that_tests_move) {
    HANDLE event = new_event(TRUE);
    waiter_t waiter(event, hour);
    HANDLE ended = new_event(TRUE);
    std::thread mover([&] {
        while (WaitForSingleObject(ended, 0) == WAIT_TIMEOUT) {
            advance_clock(hour);
        }
    });
    EXPECT_EQ(waiter.outcome(), std::pair(WAIT_TIMEOUT, poison));
    SetEvent(ended);
    mover.join();
    CloseHandle(ended);
    CloseHandle(event);
}

TEST(clock, wraps_under_a_wait_and_never_steps_back) {
    const uint64_t before = base::tick64();
    HANDLE event = new_event(TRUE);
    advance_clock_to(0xFFFFFFFA);
    EXPECT_GE(GetTickCount(), 0xFFFFFFFA);
    EXPECT_EQ(WaitForSingleObject(event, 20), WAIT_TIMEOUT);
    EXPECT_LT(GetTickCount(), hour);
    EXPECT_GT(base::tick64(), before);
    int moves = 0;
    {
        const base::clock_watch_t watch([&] { ++moves; });
        advance_clock_to(0x80000000);
        EXPECT_GE(GetTickCount(), 0x80000000);
    }
    advance_clock(1);
    EXPECT_EQ(moves, 1);
    CloseHandle(event);
}

TEST(handle, that_is_stale_foreign_or_closed_in_a_wait_is_an_error) {
    HANDLE event = new_event(TRUE);
    waiter_t endless(event, INFINITE);
    waiter_t timed(event, hour);
    endless.await_sleep();
    timed.await_sleep();
    EXPECT_EQ(poisoned([&] { return CloseHandle(event); }), std::pair(TRUE, poison));
    EXPECT_EQ(endless.outcome(), std::pair(WAIT_FAILED, ERROR_INVALID_HANDLE));
    EXPECT_EQ(timed.outcome(), std::pair(WAIT_FAILED, ERROR_INVALID_HANDLE));
    int foreign = 0;
    for (HANDLE bad : {event, HANDLE{}, INVALID_HANDLE_VALUE, static_cast<HANDLE>(&foreign)}) {
        EXPECT_EQ(poisoned([&] { return CloseHandle(bad); }), std::pair(FALSE, ERROR_INVALID_HANDLE));
        EXPECT_EQ(poisoned([&] { return SetEvent(bad); }), std::pair(FALSE, ERROR_INVALID_HANDLE));
        EXPECT_EQ(poisoned([&] { return WaitForSingleObject(bad, 0); }), std::pair(WAIT_FAILED, ERROR_INVALID_HANDLE));
    }
}

TEST(thread, has_its_own_id_last_error_and_impersonations) {
    struct seen_t {
        DWORD id, first_error;
        std::pair<BOOL, DWORD> revert;
    } seen{};
    SetLastError(poison);
    ASSERT_TRUE(CeImpersonateCurrentProcess());
    DWORD id = 0;
    HANDLE thread = CreateThread(
        nullptr, 0,
        [](LPVOID parameter) -> DWORD {
            *static_cast<seen_t*>(parameter) = {GetCurrentThreadId(), GetLastError(), poisoned(CeRevertToSelf)};
            return 0;
        },
        &seen, 0, &id);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(poisoned([&] { return SetEvent(thread); }), std::pair(FALSE, ERROR_INVALID_HANDLE));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(seen.id, id);
    EXPECT_NE(seen.id, GetCurrentThreadId());
    EXPECT_EQ(seen.first_error, 0U);
    EXPECT_EQ(seen.revert, std::pair(FALSE, ERROR_INVALID_FUNCTION));
    ASSERT_TRUE(CeImpersonateCurrentProcess());
    EXPECT_TRUE(CeRevertToSelf());
    EXPECT_EQ(poisoned(CeRevertToSelf), std::pair(TRUE, poison));
    EXPECT_EQ(poisoned(CeRevertToSelf), std::pair(FALSE, ERROR_INVALID_FUNCTION));
    EXPECT_TRUE(CloseHandle(thread));
}

TEST(critical_section, is_recursive_and_keeps_other_threads_out) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    int count = 0;
    const auto add = [&] {
        for (int n = 0; n < 500; ++n) {
            EnterCriticalSection(&section);
            EnterCriticalSection(&section);
            LeaveCriticalSection(&section);
            ++count;
            LeaveCriticalSection(&section);
        }
    };
    std::thread other(add);
    add();
    other.join();
    EXPECT_EQ(count, 1000);
    DeleteCriticalSection(&section);
}
