#include "platform/linux/event.h"

#include <chrono>
#include <memory>
#include <optional>

#include "base/clock.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"

namespace platform {

void waitable_t::set() {
    {
        const std::lock_guard lock(mutex);
        is_signalled = true;
    }
    changed.notify_all();
}

void waitable_t::reset() {
    const std::lock_guard lock(mutex);
    is_signalled = false;
}

void waitable_t::close() {
    const std::lock_guard lock(mutex);
    is_closed = true;
    changed.notify_all();
}

void waitable_t::wake() {
    const std::lock_guard lock(mutex);
    changed.notify_all();
}

DWORD waitable_t::wait(DWORD milliseconds) {
    const uint64_t deadline = base::tick64() + milliseconds;
    std::optional<base::clock_watch_t> watch;
    if (milliseconds != 0 && milliseconds != INFINITE) {
        watch.emplace([this] { wake(); });
    }
    std::unique_lock lock(mutex);
    while (!is_signalled) {
        if (is_closed) {
            return failed(ERROR_INVALID_HANDLE, WAIT_FAILED);
        }
        if (milliseconds == INFINITE) {
            changed.wait(lock);
            continue;
        }
        const uint64_t now = base::tick64();
        if (now >= deadline) {
            return WAIT_TIMEOUT;
        }
        const base::timed_wait_t timed(deadline);
        changed.wait_for(lock, std::chrono::milliseconds(deadline - now));
    }
    if (kind == kind_t::auto_reset_event) {
        is_signalled = false;
    }
    return WAIT_OBJECT_0;
}

handle_table_t<waitable_t>& waitables() {
    static auto& table = *new handle_table_t<waitable_t>;  // threads that outlive main may still use it
    return table;
}

}  // namespace platform

using platform::failed;
using platform::injected_failure;
using platform::waitable_t;
using platform::waitables;

HANDLE CreateEventW(void* security, BOOL manual_reset, BOOL initial_state, LPCWSTR name) {
    if (const auto error = injected_failure(__func__)) {
        return failed(*error, HANDLE{});
    }
    if (security != nullptr || name != nullptr) {
        return failed(ERROR_INVALID_PARAMETER, HANDLE{});
    }
    const auto kind =
        manual_reset != FALSE ? waitable_t::kind_t::manual_reset_event : waitable_t::kind_t::auto_reset_event;
    return waitables().add(std::make_shared<waitable_t>(kind, initial_state != FALSE));
}

BOOL EventModify(HANDLE event, DWORD function) {
    if (const auto error = injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    const auto object = waitables().find(event);
    if (object == nullptr || !object->is_event()) {
        return failed(ERROR_INVALID_HANDLE, FALSE);
    }
    if (function == EVENT_SET) {
        object->set();
    } else if (function == EVENT_RESET) {
        object->reset();
    } else {
        return failed(ERROR_INVALID_PARAMETER, FALSE);
    }
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (const auto error = injected_failure(__func__)) {
        return failed(*error, WAIT_FAILED);
    }
    const auto object = waitables().find(handle);
    if (object == nullptr) {
        return failed(ERROR_INVALID_HANDLE, WAIT_FAILED);
    }
    return object->wait(milliseconds);
}

BOOL CloseHandle(HANDLE handle) {
    if (const auto error = injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    const auto object = waitables().remove(handle);
    if (object == nullptr) {
        return failed(ERROR_INVALID_HANDLE, FALSE);
    }
    object->close();
    return TRUE;
}
