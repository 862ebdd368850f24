/// Windows CE paths: their components, and the way from one to the host's path, which is told in home.h.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace platform {

/// What lies between the backslashes; empty components are left out.
std::vector<std::u16string_view> path_components(std::u16string_view path);

/// True for a name that an entry of a folder can have on the platform.
bool is_file_name(std::u16string_view component);

/// What a path leads to, as it was found.
struct place_t {
    std::string path;           // on the host
    base::descriptor_t folder;  // what it lies in; none for the home itself, and where a link was followed
    size_t name_at = 0;         // where its name in that begins
    struct stat status {};      // of what is there; no symbolic link
    int error = 0;              // or the errno of looking at it

    /// For the host's calls that take a folder and a name in it.
    int at() const { return folder ? folder.get() : AT_FDCWD; }
    const char* name() const { return path.c_str() + (folder ? name_at : 0); }
};

/// Finds the place of `path`, with the folder opened by `flags`, O_PATH or O_RDONLY. Returns 0, also where nothing is,
/// ERROR_INVALID_NAME for a name that the platform does not know, or ERROR_PATH_NOT_FOUND for an empty path, a missing
/// home and a symbolic link that may not be followed.
[[nodiscard]] DWORD find_place(std::u16string_view path, int flags, place_t& place);

/// When `entry` is a symbolic link, replaces it by its target. False when that lies outside `root` or does not exist.
[[nodiscard]] bool follow_link(const std::filesystem::path& root, std::filesystem::path& entry);

}  // namespace platform
