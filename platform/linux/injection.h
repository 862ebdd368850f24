/// The platform's side of testing.h: every call that can fail asks here first.
#pragma once

#include <windows.h>

#include <atomic>
#include <cerrno>
#include <optional>
#include <string_view>

namespace platform {

extern std::atomic<bool> failures_set;
std::optional<DWORD> take_failure(std::string_view function);

/// The error that the current call to `function` (pass __func__) is to fail with. With nothing set: one relaxed load.
inline std::optional<DWORD> injected_failure(const char* function) {
    if (!failures_set.load(std::memory_order_relaxed)) {
        return std::nullopt;
    }
    return take_failure(function);
}

/// Whether a call to the host is to fail, with errno set: `fails("fsync") || fsync(…) != 0`.
inline bool fails(const char* call) noexcept {
    const std::optional<DWORD> error = injected_failure(call);
    if (error) {
        errno = static_cast<int>(*error);
    }
    return error.has_value();
}

}  // namespace platform
