/// The phone's home: the folder that stands for the top of the object store. Files lie in it under their Windows CE
/// paths, the registry in the SQLite file "registry.sqlite". Names of files compare as the host's do: with case.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace platform {

/// Sets the home of this process, before any other platform call; the folder is made when it is missing. Returns an
/// empty text, or why it cannot be used: it is to be this user's, and nobody else's to write (base/own_file.h). A link
/// that leads to it is the user's choice. It is followed here, once: what it leads to is looked at and used, wherever
/// it is turned later. Tests may set another home later: new calls then go there, while open streams, enumerations and
/// registry keys stay with the old one.
[[nodiscard]] std::string set_home(const std::filesystem::path& home);
const std::filesystem::path& home();

/// Where a Windows CE path lies on the host. No path leaves the home: "..", slashes and control characters inside a
/// component, and symbolic links that point outside or nowhere, give an empty path; so do names that the platform does
/// not know: the components "." and "..", characters among <>:"|?*, a component over 255 octets of UTF-8 and a path of
/// MAX_PATH units or more. Symbolic links inside the home are followed.
std::filesystem::path host_path(LPCWSTR path);

}  // namespace platform
