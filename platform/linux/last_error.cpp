#include "platform/linux/last_error.h"

#include <cerrno>

namespace {
thread_local DWORD last_error = ERROR_SUCCESS;
}

DWORD GetLastError() {
    return last_error;
}

void SetLastError(DWORD error) {
    last_error = error;
}

namespace platform {

DWORD error_of_errno(int number) {
    switch (number) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EEXIST:
            return ERROR_ALREADY_EXISTS;
        case ENOMEM:
        case EAGAIN:
        case EMFILE:
        case ENFILE:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EINVAL:
        case E2BIG:
            return ERROR_INVALID_PARAMETER;
        case ENAMETOOLONG:
        case ELOOP:
            return ERROR_INVALID_NAME;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace platform
