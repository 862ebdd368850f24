#include "platform/linux/paths.h"

#include <algorithm>
#include <climits>
#include <string>
#include <system_error>

#include "base/text.h"
#include "platform/linux/home.h"
#include "platform/linux/whole_file.h"

namespace platform {
namespace {

bool is_forbidden(char16_t unit) {
    const bool is_control = unit < 0x20 || (unit >= 0x7F && unit < 0xA0);
    return is_control || std::u16string_view(u"\\/<>:\"|?*").find(unit) != std::u16string_view::npos;
}

}  // namespace

std::vector<std::u16string_view> path_components(std::u16string_view path) {
    std::vector<std::u16string_view> components;
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
    return !component.empty() && component != u"." && component != u".." &&
           std::none_of(component.begin(), component.end(), is_forbidden) &&
           base::to_utf8(component).size() <= NAME_MAX && !is_temporary_name(component);
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

DWORD resolve_path(std::u16string_view path, std::filesystem::path& result) {
    const std::filesystem::path& root = home();
    if (root.empty() || path.empty()) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (path.size() >= static_cast<size_t>(MAX_PATH)) {
        return ERROR_INVALID_NAME;
    }
    std::filesystem::path at = root;
    for (const std::u16string_view component : path_components(path)) {
        if (!is_file_name(component)) {
            return ERROR_INVALID_NAME;
        }
        at /= base::to_utf8(component);
        if (!follow_link(root, at)) {
            return ERROR_PATH_NOT_FOUND;
        }
    }
    result = std::move(at);
    return ERROR_SUCCESS;
}

std::filesystem::path host_path(LPCWSTR path) {
    std::filesystem::path result;
    if (path == nullptr || resolve_path(path, result) != ERROR_SUCCESS) {
        return {};
    }
    return result;
}

}  // namespace platform
