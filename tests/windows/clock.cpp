// The clock that tests move: the system's, and what they have added.
#include <windows.h>
#undef GetTickCount
#undef WaitForSingleObject

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

#include "platform/linux/injection.h"
#include "platform/linux/testing.h"

namespace {

std::atomic<uint64_t> moved_by{0};

struct waits_t {
    std::mutex mutex;
    std::set<HANDLE> moved;  // an event of each thread that waits: the clock has been moved
};

waits_t& waits() {
    static auto& instance = *new waits_t;  // threads that outlive main may still wait
    return instance;
}

uint64_t tick64() {
    return GetTickCount64() + moved_by.load();
}

}  // namespace

namespace platform::testing {

void advance_clock(uint64_t milliseconds) {
    const std::lock_guard lock(waits().mutex);
    moved_by.fetch_add(milliseconds);
    std::ranges::for_each(waits().moved, SetEvent);
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
    const HANDLE handles[] = {handle, ::CreateEventExW(nullptr, nullptr, 0, EVENT_ALL_ACCESS)};
    {
        const std::lock_guard lock(waits().mutex);
        waits().moved.insert(handles[1]);
    }
    DWORD result = 0;
    do {
        const uint64_t passed = std::min<uint64_t>(tick64() - begin, milliseconds);
        const DWORD left = milliseconds == INFINITE ? INFINITE : static_cast<DWORD>(milliseconds - passed);
        result = WaitForMultipleObjects(2, handles, FALSE, left);
    } while (result == WAIT_OBJECT_0 + 1);
    const std::lock_guard lock(waits().mutex);
    waits().moved.erase(handles[1]);
    CloseHandle(handles[1]);
    return result;
}
