/// Folders and files that are one user's alone: they belong to the user of this process, and nobody else can write
/// them. What such a folder holds has been put there by that user, and stays; only what lies where it does not belong
/// (a link, a FIFO) is to be kept out.
///
/// A problem is a text for people, with the command that mends it; an empty one says that there is none. Any thread.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "base/descriptor.h"

namespace base {

/// "a file", "a folder", "a link", "a FIFO", "a socket" or "a device", of stat's st_mode.
const char* kind_of_file(mode_t mode);

/// What stands against a folder of one's own: it is none (a link is not), it belongs to another user, others can write
/// it, or it lies in a folder whose owner, or everybody, could put another in its place. A folder with the sticky bit
/// lets nobody do so; a group that may write the folder above is trusted, for it is mostly the user's own. `what`
/// begins the text: "the home folder".
std::string own_folder_problem(const std::string& what, const std::filesystem::path& folder);

/// What stands against a file of one's own; nothing, when it is missing.
std::string own_file_problem(const std::filesystem::path& file);

/// Opens a file of one's own (open(2), and O_CREAT makes it with mode 0600), without following a link or waiting for
/// the other end of a FIFO. Without a descriptor, `problem` and errno say why.
descriptor_t open_own_file(const std::filesystem::path& file, int flags, std::string& problem);

/// Opens for reading what this user or root says, and nobody else: a file of either of them, to which a link may lead,
/// or /dev/null. Without a descriptor, `problem` and errno say why.
descriptor_t open_trusted_file(const std::filesystem::path& file, std::string& problem);

}  // namespace base
