/// The platform's side of testing.h: every call that can fail asks here first.
#pragma once

#include <windows.h>

#include <atomic>
#include <cerrno>
#include <string_view>

namespace platform {

/// An error, or none. Unlike a std::optional without a value all of it is written: every call reads it as a whole right
/// after, and would wait longer for a part of it than all else takes.
struct injected_t {
    DWORD error = ERROR_SUCCESS;
    DWORD is_set = 0;

    explicit operator bool() const { return is_set != 0; }
    DWORD operator*() const { return error; }
};

extern std::atomic<bool> failures_set;
injected_t take_failure(std::string_view function);

/// The error that the current call to `function` (pass __func__) is to fail with. With nothing set: one relaxed load.
inline injected_t injected_failure(const char* function) {
    if (!failures_set.load(std::memory_order_relaxed)) [[likely]] {
        return {};
    }
    return take_failure(function);
}

/// Whether a call to the host is to fail, with errno set: `fails("fsync") || fsync(…) != 0`.
inline bool fails(const char* call) noexcept {
    const injected_t injected = injected_failure(call);
    if (injected) {
        errno = static_cast<int>(*injected);
    }
    return static_cast<bool>(injected);
}

}  // namespace platform
