// The clock that tests move: the system's, and what they have added.
#include <windows.h>
#undef GetTickCount
#undef WaitForSingleObject

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>

#include "platform/linux/injection.h"
#include "platform/linux/testing.h"

namespace {

using event_t = std::shared_ptr<void>;  // closed when the last who waits for it lets go

std::atomic<uint64_t> moved_by{0};

struct movement_t {
    std::mutex mutex;
    event_t next = make();  // set by the next movement of the clock

    static event_t make() {
        return {::CreateEventExW(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS), CloseHandle};
    }
};

movement_t& movement() {
    static auto& instance = *new movement_t;  // threads that outlive main may still wait
    return instance;
}

uint64_t tick64() {
    return GetTickCount64() + moved_by.load();
}

}  // namespace

namespace platform::testing {

void advance_clock(uint64_t milliseconds) {
    const std::lock_guard lock(movement().mutex);
    moved_by.fetch_add(milliseconds);
    SetEvent(movement().next.get());
    movement().next = movement_t::make();
}

void advance_clock_to(DWORD tick) {
    advance_clock(static_cast<DWORD>(tick - interposed::GetTickCount()));
}

}  // namespace platform::testing

DWORD interposed::GetTickCount() {
    return static_cast<DWORD>(tick64());
}

DWORD interposed::WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (const auto error = platform::injected_failure("WaitForSingleObject")) {
        SetLastError(*error);
        return WAIT_FAILED;
    }
    const uint64_t begin = tick64();
    for (;;) {
        event_t moved;
        {
            const std::lock_guard lock(movement().mutex);
            moved = movement().next;
        }
        const uint64_t passed = tick64() - begin;
        const DWORD left =
            milliseconds == INFINITE ? INFINITE : milliseconds - std::min<uint64_t>(passed, milliseconds);
        const HANDLE handles[] = {handle, moved.get()};
        const DWORD result = WaitForMultipleObjects(2, handles, FALSE, left);
        if (result != WAIT_OBJECT_0 + 1) {
            return result;
        }
    }
}
