/// How this platform's calls report failure.
#pragma once

#include <windows.h>

namespace platform {

/// Sets the calling thread's last error and hands back the call's failure value: `return failed(ERROR_…, FALSE)`.
template <typename value_t>
value_t failed(DWORD error, value_t value) {
    SetLastError(error);
    return value;
}

/// The Win32 error for an errno; ERROR_GEN_FAILURE for one that has no counterpart here.
DWORD error_of_errno(int number);

}  // namespace platform
