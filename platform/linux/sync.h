/// What is written, on the disk and not only in the host's memory.
#pragma once

#include "base/descriptor.h"
#include "platform/linux/paths.h"

namespace platform {

/// False with errno.
bool sync_file(int descriptor) noexcept;
/// The folder of a place that was found with O_RDONLY, taken out of it, to be synced after a change of its names:
/// opened before it, for that is what may fail. None with errno.
base::descriptor_t take_folder(place_t& place);
/// False with errno. True on a file system that has no such thing.
bool sync_folder(const base::descriptor_t& folder) noexcept;

}  // namespace platform
