#include "platform/linux/paths.h"

#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

#include "base/text.h"
#include "platform/linux/home.h"
#include "platform/linux/whole_file.h"

namespace platform {
namespace {

// Of each character up to the last one that no name has: a folder's names are all looked at.
constexpr std::array<bool, 0xA0> forbidden = [] {
    std::array<bool, 0xA0> result{};
    for (size_t at = 0; at < result.size(); ++at) {
        const auto unit = static_cast<char16_t>(at);
        const bool is_control = unit < 0x20 || unit >= 0x7F;
        result[at] = is_control || std::u16string_view(u"\\/<>:\"|?*").find(unit) != std::u16string_view::npos;
    }
    return result;
}();

bool is_forbidden(char16_t unit) {
    return unit < forbidden.size() && forbidden[unit];
}

/// Opens a folder whose path has no symbolic link: openat(2) would follow one. None with errno, also where the host
/// does not know the call (before Linux 5.6).
base::descriptor_t open_without_links(const char* folder, int flags) {
    open_how how{};
    how.flags = static_cast<uint64_t>(flags | O_DIRECTORY | O_CLOEXEC);
    how.resolve = RESOLVE_NO_SYMLINKS;
    return base::descriptor_t(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, folder, &how, sizeof how)));
}

void look(place_t& place) {
    place.error = fstatat(place.at(), place.name(), &place.status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

/// Most paths have no link, and a folder that is there: then one call finds that out. False for all others.
bool find_straight(const std::string& root, std::u16string_view path, int flags, place_t& place) {
    place.path = root;
    for (const std::u16string_view component : path_components(path)) {
        if (!is_file_name(component)) {
            return false;
        }
        place.path += '/';
        place.name_at = place.path.size();
        place.path += base::to_utf8(component);
    }
    if (place.name_at == 0) {
        return false;
    }
    place.path[place.name_at - 1] = '\0';
    place.folder = open_without_links(place.path.c_str(), flags);
    place.path[place.name_at - 1] = '/';
    if (!place.folder) {
        return false;
    }
    look(place);
    return place.error != 0 || !S_ISLNK(place.status.st_mode);
}

/// Goes from one component to the next, and follows what links there are.
DWORD follow_path(const std::filesystem::path& root, std::u16string_view path, std::filesystem::path& at) {
    at = root;
    for (const std::u16string_view component : path_components(path)) {
        if (!is_file_name(component)) {
            return ERROR_INVALID_NAME;
        }
        at /= base::to_utf8(component);
        if (!follow_link(root, at)) {
            return ERROR_PATH_NOT_FOUND;
        }
    }
    return ERROR_SUCCESS;
}

}  // namespace

std::vector<std::u16string_view> path_components(std::u16string_view path) {
    std::vector<std::u16string_view> components;
    components.reserve(8);
    while (!path.empty()) {
        const size_t length = std::min(path.find(u'\\'), path.size());
        if (length != 0) {
            components.push_back(path.substr(0, length));
        }
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return components;
}

bool is_file_name(std::u16string_view component) {
    constexpr size_t most_octets = 3;  // of a unit, in UTF-8
    return !component.empty() && component != u"." && component != u".." &&
           std::none_of(component.begin(), component.end(), is_forbidden) &&
           (component.size() * most_octets <= NAME_MAX || base::to_utf8(component).size() <= NAME_MAX) &&
           !is_temporary_name(component);
}

bool follow_link(const std::filesystem::path& root, std::filesystem::path& entry) {
    std::error_code error;
    if (!std::filesystem::is_symlink(entry, error)) {
        return true;  // whatever else is wrong with it, its user will see
    }
    std::filesystem::path target = std::filesystem::canonical(entry, error);
    if (error || std::mismatch(root.begin(), root.end(), target.begin(), target.end()).first != root.end()) {
        return false;
    }
    entry = std::move(target);
    return true;
}

DWORD find_place(std::u16string_view path, int flags, place_t& place) {
    const std::filesystem::path& root = home();
    if (root.empty() || path.empty()) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (path.size() >= static_cast<size_t>(MAX_PATH)) {
        return ERROR_INVALID_NAME;
    }
    if (find_straight(root.native(), path, flags, place)) {
        return ERROR_SUCCESS;
    }
    std::filesystem::path at;
    const DWORD error = follow_path(root, path, at);
    if (error == ERROR_SUCCESS) {
        place.folder.close();
        place.path = at.native();
        look(place);
    }
    return error;
}

std::filesystem::path host_path(LPCWSTR path) {
    place_t place;
    return path == nullptr || find_place(path, O_PATH, place) != ERROR_SUCCESS ? std::string() : place.path;
}

}  // namespace platform
