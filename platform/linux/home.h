/// The phone's home: the folder that stands for the top of the object store. Files lie in it under their Windows CE paths,
/// the registry in the SQLite file "registry.sqlite".
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace platform {

/// Sets the home of this process, before any other platform call; the folder is made when it is missing. Returns an
/// empty text, or why it cannot be used.
[[nodiscard]] std::string set_home(const std::filesystem::path& home);
const std::filesystem::path& home();

/// Where a Windows CE path lies on the host. No path leaves the home: "..", slashes and control characters inside a
/// component, and symbolic links that point outside, give an empty path.
std::filesystem::path host_path(LPCWSTR path);

}  // namespace platform
