#include <windows.h>

BOOL EventModify(HANDLE event, DWORD function) {
    switch (function) {
        case EVENT_SET:
            return SetEvent(event);
        case EVENT_RESET:
            return ResetEvent(event);
        default:
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
    }
}
