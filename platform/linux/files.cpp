#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <windows.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "base/descriptor.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"
#include "platform/linux/paths.h"

namespace {

using platform::failed;

DWORD resolve(LPCWSTR path, std::filesystem::path& result) {
    return path == nullptr ? ERROR_INVALID_PARAMETER : platform::resolve_path(path, result);
}

/// The platform tells a missing file from a missing folder on the way to it; errno does not.
DWORD error_on(const std::filesystem::path& path, int number) {
    std::error_code ignored;
    if (number == ENOENT && !std::filesystem::is_directory(path.parent_path(), ignored)) {
        return ERROR_PATH_NOT_FOUND;
    }
    return platform::error_of_errno(number);
}

struct open_mode_t {
    int flags;
    const char* stream;  // for fdopen
};

/// The modes of the C runtime that mean the same on both systems.
std::optional<open_mode_t> open_mode(LPCWSTR mode) {
    const std::u16string_view text = mode == nullptr ? std::u16string_view{} : mode;
    const std::u16string_view rest = text.substr(text.empty() ? 0 : 1);
    const bool update = rest == u"+" || rest == u"b+" || rest == u"+b";
    if (text.empty() || !(rest.empty() || rest == u"b" || update)) {
        return std::nullopt;
    }
    switch (text[0]) {
        case u'r':
            return open_mode_t{update ? O_RDWR : O_RDONLY, update ? "r+" : "r"};
        case u'w':
            // A received message is stored in this way, and dropped from the modem thereafter: it must be on the disk
            // when the driver has written it, not only in the host's memory.
            return open_mode_t{(update ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC | O_DSYNC, update ? "w+" : "w"};
        case u'a':
            return open_mode_t{(update ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND, update ? "a+" : "a"};
        default:
            return std::nullopt;
    }
}

/// Opens a regular file. O_NONBLOCK keeps a FIFO from holding the caller; on regular files it means nothing.
FILE* open_stream(const std::filesystem::path& path, const open_mode_t& mode) {
    base::descriptor_t file(open(path.c_str(), mode.flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0666));
    struct stat status {};
    if (file && (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file.close();
        errno = EACCES;
    }
    FILE* const stream = file ? fdopen(file.get(), mode.stream) : nullptr;
    if (stream != nullptr) {
        static_cast<void>(file.release());
    }
    return stream;
}

}  // namespace

BOOL CreateDirectoryW(LPCWSTR path, void* /*security*/) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    std::filesystem::path folder;
    if (const DWORD error = resolve(path, folder); error != ERROR_SUCCESS) {
        return failed(error, FALSE);
    }
    if (mkdir(folder.c_str(), 0777) != 0) {
        return failed(error_on(folder, errno), FALSE);
    }
    return TRUE;
}

BOOL DeleteFileW(LPCWSTR path) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    std::filesystem::path file;
    if (const DWORD error = resolve(path, file); error != ERROR_SUCCESS) {
        return failed(error, FALSE);
    }
    if (unlink(file.c_str()) != 0) {
        return failed(error_on(file, errno), FALSE);
    }
    return TRUE;
}

DWORD GetFileAttributesW(LPCWSTR path) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, INVALID_FILE_ATTRIBUTES);
    }
    std::filesystem::path entry;
    if (const DWORD error = resolve(path, entry); error != ERROR_SUCCESS) {
        return failed(error, INVALID_FILE_ATTRIBUTES);
    }
    struct stat status {};
    if (stat(entry.c_str(), &status) != 0) {
        return failed(error_on(entry, errno), INVALID_FILE_ATTRIBUTES);
    }
    return S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the platform's name
FILE* _wfopen(LPCWSTR path, LPCWSTR mode) {
    if (const auto error = platform::injected_failure(__func__)) {
        errno = EACCES;
        return failed(*error, static_cast<FILE*>(nullptr));
    }
    const auto how = open_mode(mode);
    std::filesystem::path file;
    const DWORD error = how ? resolve(path, file) : ERROR_INVALID_PARAMETER;
    if (error != ERROR_SUCCESS) {
        errno = error == ERROR_PATH_NOT_FOUND ? ENOENT : EINVAL;
        return failed(error, static_cast<FILE*>(nullptr));
    }
    FILE* const stream = open_stream(file, *how);
    if (stream == nullptr) {
        const int reason = errno;
        SetLastError(error_on(file, reason));
        errno = reason;
    }
    return stream;
}
