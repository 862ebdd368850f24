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
#include <utility>

#include "base/descriptor.h"
#include "base/text.h"
#include "platform/linux/appended_file.h"
#include "platform/linux/file_writes.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"
#include "platform/linux/paths.h"
#include "platform/linux/stream.h"
#include "platform/linux/sync.h"
#include "platform/linux/whole_file.h"

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

/// The modes of the C runtime that mean the same on both systems.
struct open_mode_t {
    char16_t access;  // one of "rwa"
    bool update;

    /// A received message is stored in this way, and dropped from the modem thereafter.
    bool is_whole() const { return access == u'w'; }
};

std::optional<open_mode_t> open_mode(LPCWSTR mode) {
    const std::u16string_view text = mode == nullptr ? std::u16string_view{} : mode;
    if (text.empty() || std::u16string_view(u"rwa").find(text[0]) == std::u16string_view::npos) {
        return std::nullopt;
    }
    const std::u16string_view rest = text.substr(1);
    const bool update = rest == u"+" || rest == u"b+" || rest == u"+b";
    return update || rest.empty() || rest == u"b" ? std::optional(open_mode_t{text[0], update}) : std::nullopt;
}

FILE* open_to_read(const std::filesystem::path& path, bool update) {
    base::descriptor_t file = platform::open_regular_file(path, update ? O_RDWR : O_RDONLY);
    FILE* const stream = file ? fdopen(file.get(), update ? "r+" : "r") : nullptr;
    if (stream != nullptr) {
        static_cast<void>(file.release());
    }
    return stream;
}

FILE* open_file(const std::filesystem::path& path, const open_mode_t& mode) {
    switch (mode.access) {
        case u'r':
            return open_to_read(path, mode.update);
        case u'w':
            return platform::open_whole_file(path, mode.update);
        default:
            return platform::open_appended_file(path, mode.update);
    }
}

/// The path in the driver's words, for one that has no place on the host.
std::filesystem::path as_told(LPCWSTR path) {
    return path == nullptr ? std::string() : base::to_utf8(path);
}

/// On the disk, for what is stored in it lasts only if it does; false with errno.
bool make_folder(const std::filesystem::path& folder) {
    const base::descriptor_t above = platform::open_folder(folder.parent_path());
    if (!above || mkdir(folder.c_str(), 0777) != 0) {
        return false;
    }
    if (!platform::sync_folder(above)) {
        const int reason = errno;
        rmdir(folder.c_str());
        errno = reason;
        return false;
    }
    return true;
}

/// The errno for what the platform itself refused.
int errno_of_refusal(DWORD error) {
    return error == ERROR_PATH_NOT_FOUND ? ENOENT : EINVAL;
}

}  // namespace

BOOL CreateDirectoryW(LPCWSTR path, void* /*security*/) {
    if (const auto error = platform::injected_failure(__func__)) {
        platform::note_failure(as_told(path), EACCES);
        return failed(*error, FALSE);
    }
    std::filesystem::path folder = as_told(path);
    if (const DWORD error = resolve(path, folder); error != ERROR_SUCCESS) {
        platform::note_failure(folder, errno_of_refusal(error));
        return failed(error, FALSE);
    }
    if (!make_folder(folder)) {
        const int reason = errno;
        platform::note_failure(folder, reason);
        return failed(error_on(folder, reason), FALSE);
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
    const auto injected = platform::injected_failure(__func__);
    const auto how = open_mode(mode);
    std::filesystem::path file = as_told(path);
    DWORD error = injected ? *injected : how ? resolve(path, file) : ERROR_INVALID_PARAMETER;
    int reason = injected ? EACCES : errno_of_refusal(error);
    if (error == ERROR_SUCCESS) {
        if (FILE* const stream = open_file(file, *how)) {
            return stream;
        }
        reason = errno;
        error = error_on(file, reason);
    }
    if (how && how->is_whole()) {
        platform::note_failure(std::move(file), reason);
    }
    errno = reason;
    return failed(error, static_cast<FILE*>(nullptr));
}
