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

DWORD find(LPCWSTR path, int flags, platform::place_t& place) {
    return path == nullptr ? ERROR_INVALID_PARAMETER : platform::find_place(path, flags, place);
}

/// The platform tells a missing file from a missing folder on the way to it; errno does not.
DWORD error_on(const platform::place_t& place, int number) {
    std::error_code ignored;
    if (number == ENOENT && !place.folder &&
        !std::filesystem::is_directory(std::filesystem::path(place.path).parent_path(), ignored)) {
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

FILE* open_file(platform::place_t& place, const open_mode_t& mode) {
    switch (mode.access) {
        case u'r':
            return open_to_read(place.path, mode.update);
        case u'w':
            return platform::open_whole_file(place, mode.update);
        default:
            return platform::open_appended_file(place.path, mode.update);
    }
}

/// The path in the driver's words, for one that has no place on the host.
std::string as_told(LPCWSTR path) {
    return path == nullptr ? std::string() : base::to_utf8(path);
}

/// On the disk, for what is stored in it lasts only if it does; false with errno.
bool make_folder(platform::place_t& place) {
    const base::descriptor_t above = platform::take_folder(place);
    const char* const name = place.path.c_str() + place.name_at;
    if (!above || mkdirat(above.get(), name, 0777) != 0) {
        return false;
    }
    if (!platform::sync_folder(above)) {
        const int reason = errno;
        unlinkat(above.get(), name, AT_REMOVEDIR);
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
    platform::place_t folder;
    if (const DWORD error = find(path, O_RDONLY, folder); error != ERROR_SUCCESS) {
        platform::note_failure(as_told(path), errno_of_refusal(error));
        return failed(error, FALSE);
    }
    if (!make_folder(folder)) {
        const int reason = errno;
        platform::note_failure(folder.path, reason);
        return failed(error_on(folder, reason), FALSE);
    }
    return TRUE;
}

BOOL DeleteFileW(LPCWSTR path) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    platform::place_t file;
    if (const DWORD error = find(path, O_PATH, file); error != ERROR_SUCCESS) {
        return failed(error, FALSE);
    }
    if (unlinkat(file.at(), file.name(), 0) != 0) {
        return failed(error_on(file, errno), FALSE);
    }
    return TRUE;
}

DWORD GetFileAttributesW(LPCWSTR path) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, INVALID_FILE_ATTRIBUTES);
    }
    platform::place_t entry;
    if (const DWORD error = find(path, O_PATH, entry); error != ERROR_SUCCESS) {
        return failed(error, INVALID_FILE_ATTRIBUTES);
    }
    if (entry.error != 0) {
        return failed(error_on(entry, entry.error), INVALID_FILE_ATTRIBUTES);
    }
    return S_ISDIR(entry.status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the platform's name
FILE* _wfopen(LPCWSTR path, LPCWSTR mode) {
    const auto injected = platform::injected_failure(__func__);
    const auto how = open_mode(mode);
    platform::place_t file;
    DWORD error = injected ? *injected : how ? find(path, O_RDONLY, file) : ERROR_INVALID_PARAMETER;
    int reason = injected ? EACCES : errno_of_refusal(error);
    const bool found = error == ERROR_SUCCESS;
    if (found) {
        if (FILE* const stream = open_file(file, *how)) {
            return stream;
        }
        reason = errno;
        error = error_on(file, reason);
    }
    if (how && how->is_whole()) {
        platform::note_failure(found ? file.path : as_told(path), reason);
    }
    errno = reason;
    return failed(error, static_cast<FILE*>(nullptr));
}
