#include <dirent.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/linux/handles.h"
#include "platform/linux/home.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"
#include "platform/linux/paths.h"

namespace {

using platform::failed;

struct close_directory_t {
    void operator()(DIR* directory) const { closedir(directory); }
};

/// A running enumeration.
struct find_t {
    std::filesystem::path root;  // the home at its start
    std::filesystem::path folder;
    std::u16string pattern;
    std::mutex mutex;  // guards the stream's position
    std::unique_ptr<DIR, close_directory_t> directory;
};

platform::handle_table_t<find_t>& finds() {
    static auto& table = *new platform::handle_table_t<find_t>;  // threads that outlive main may still use it
    return table;
}

/// Letters of ASCII compare without case.
char16_t fold(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? unit + (u'a' - u'A') : unit;
}

/// "*" is any text, "?" any one unit. On a mismatch the last "*" takes one unit more: no recursion, so no pattern makes
/// it slow.
bool matches(std::u16string_view pattern, std::u16string_view name) {
    size_t p = 0;
    size_t n = 0;
    size_t star = std::u16string_view::npos;
    size_t taken = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == u'*') {
            star = p++;
            taken = n;
        } else if (p < pattern.size() && (pattern[p] == u'?' || fold(pattern[p]) == fold(name[n]))) {
            ++p;
            ++n;
        } else if (star != std::u16string_view::npos) {
            p = star + 1;
            n = ++taken;
        } else {
            return false;
        }
    }
    return std::all_of(pattern.begin() + static_cast<ptrdiff_t>(p), pattern.end(),
                       [](char16_t u) { return u == u'*'; });
}

/// 0 for what the platform would not see: a link that leaves the home, an entry that has just gone. Of most entries
/// the folder itself tells what they are.
DWORD attributes(const find_t& find, const dirent& found) {
    if (found.d_type == DT_REG) {
        return FILE_ATTRIBUTE_NORMAL;
    }
    std::filesystem::path path = find.folder / found.d_name;
    struct stat status {};
    if (!platform::follow_link(find.root, path) || stat(path.c_str(), &status) != 0) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}

/// Goes on to the next entry that matches; false at the end. A name that no platform path can spell is passed over.
bool advance(find_t& find, WIN32_FIND_DATAW& entry) {
    const std::lock_guard lock(find.mutex);
    while (const dirent* found = readdir(find.directory.get())) {
        const std::u16string name = base::to_utf16(found->d_name);
        if (!base::is_utf8(found->d_name) || !platform::is_file_name(name) || !matches(find.pattern, name)) {
            continue;
        }
        entry.dwFileAttributes = attributes(find, *found);
        if (entry.dwFileAttributes != 0) {
            *std::copy(name.begin(), name.end(), std::begin(entry.cFileName)) = u'\0';
            return true;
        }
    }
    return false;
}

/// True when a pattern's last component, its wildcards taken for letters, is a name.
bool is_pattern(std::u16string_view pattern) {
    std::u16string name(pattern);
    std::replace_if(
        name.begin(), name.end(), [](char16_t u) { return u == u'*' || u == u'?'; }, u'x');
    return platform::is_file_name(name);
}

/// Prepares an enumeration of "\folder\pattern".
DWORD start(std::u16string_view path, find_t& find) {
    const size_t separator = path.rfind(u'\\');
    const bool in_root = separator == std::u16string_view::npos || separator == 0;
    find.root = platform::home();
    find.pattern = path.substr(separator == std::u16string_view::npos ? 0 : separator + 1);
    if (find.pattern.empty()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (!is_pattern(find.pattern)) {
        return ERROR_INVALID_NAME;
    }
    if (find.pattern == u"*.*") {
        find.pattern = u"*";  // on the platform names without a dot match it too
    }
    const std::u16string_view folder = in_root ? std::u16string_view(u"\\") : path.substr(0, separator);
    platform::place_t place;
    if (const DWORD error = platform::find_place(folder, O_PATH, place); error != ERROR_SUCCESS) {
        return error;
    }
    find.folder = place.path;
    find.directory.reset(opendir(find.folder.c_str()));
    if (find.directory == nullptr) {
        return errno == ENOENT ? ERROR_PATH_NOT_FOUND : platform::error_of_errno(errno);
    }
    return ERROR_SUCCESS;
}

}  // namespace

HANDLE FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* entry) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, INVALID_HANDLE_VALUE);
    }
    if (pattern == nullptr || entry == nullptr) {
        return failed(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    }
    const auto find = std::make_shared<find_t>();
    if (const DWORD error = start(pattern, *find); error != ERROR_SUCCESS) {
        return failed(error, INVALID_HANDLE_VALUE);
    }
    if (!advance(*find, *entry)) {
        return failed(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    }
    return finds().add(find);
}

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* entry) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    const auto running = finds().find(find);
    if (running == nullptr || entry == nullptr) {
        return failed(running == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER, FALSE);
    }
    return advance(*running, *entry) ? TRUE : failed(ERROR_NO_MORE_FILES, FALSE);
}

BOOL FindClose(HANDLE find) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, FALSE);
    }
    return finds().remove(find) != nullptr ? TRUE : failed(ERROR_INVALID_HANDLE, FALSE);
}
