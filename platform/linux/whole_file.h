/// Files that appear under their names whole and on the disk, or not at all.
#pragma once

#include <cstdio>
#include <string_view>

#include "platform/linux/paths.h"

namespace platform {

/// A stream to write a file with (with `update` to read it again, too), which has no name before fclose. That puts it
/// on the disk, gives it its name, in place of a regular file that has it, and puts the folder on the disk. When any of
/// this or an earlier write fails, fclose returns EOF with errno, nothing appears, and a file of that name stays as it
/// was; only when the folder itself cannot be put on the disk after a replacement, the new content stays.
///
/// `place` was found with O_RDONLY; its folder is taken, and the name is given in it wherever it is moved meanwhile.
/// Null with errno when the folder takes no file, or something else than a regular file has the name.
///
/// On a file system without nameless files (O_TMPFILE) it has a temporary name meanwhile. What a killed process leaves
/// under such names is removed when the next one first writes a file into the folder: a home is one process's.
FILE* open_whole_file(place_t& place, bool update);

/// Whether an entry of a folder has such a temporary name. To the driver there is no such entry.
bool is_temporary_name(std::u16string_view name);

}  // namespace platform
