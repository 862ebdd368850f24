/// Windows CE paths: their components, and the way from one to the host's path, which is told in home.h.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string_view>
#include <vector>

namespace platform {

/// What lies between the backslashes; empty components are left out.
std::vector<std::u16string_view> path_components(std::u16string_view path);

/// True for a name that an entry of a folder can have on the platform.
bool is_file_name(std::u16string_view component);

/// Puts the host's path for `path` into `result`. Returns 0, ERROR_INVALID_NAME for a name that the platform does not
/// know, or ERROR_PATH_NOT_FOUND for an empty path, a missing home and a symbolic link that may not be followed.
[[nodiscard]] DWORD resolve_path(std::u16string_view path, std::filesystem::path& result);

/// When `entry` is a symbolic link, replaces it by its target. False when that lies outside `root` or does not exist.
[[nodiscard]] bool follow_link(const std::filesystem::path& root, std::filesystem::path& entry);

}  // namespace platform
