#include <windows.h>

#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"

namespace {
// A client of the same machine is let in by the device's socket; what remains here is that each thread's impersonations
// and reverts pair up.
thread_local unsigned depth = 0;
}  // namespace

BOOL CeImpersonateCurrentProcess() {
    if (const auto error = platform::injected_failure(__func__)) {
        return platform::failed(*error, FALSE);
    }
    ++depth;
    return TRUE;
}

BOOL CeRevertToSelf() {
    if (const auto error = platform::injected_failure(__func__)) {
        return platform::failed(*error, FALSE);
    }
    if (depth == 0) {
        return platform::failed(ERROR_INVALID_FUNCTION, FALSE);
    }
    --depth;
    return TRUE;
}
