#include <windows.h>

namespace {
thread_local unsigned depth = 0;
}  // namespace

BOOL CeImpersonateCurrentProcess() {
    ++depth;
    return TRUE;
}

BOOL CeRevertToSelf() {
    if (depth == 0) {
        SetLastError(ERROR_INVALID_FUNCTION);
        return FALSE;
    }
    --depth;
    return TRUE;
}
