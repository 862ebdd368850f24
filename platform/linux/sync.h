/// What is written, on the disk and not only in the host's memory.
#pragma once

#include <filesystem>

#include "base/descriptor.h"

namespace platform {

/// False with errno.
bool sync_file(int descriptor) noexcept;
/// A folder to be synced after a change of its names: opened before it, for that is what may fail. None with errno.
base::descriptor_t open_folder(const std::filesystem::path& folder) noexcept;
/// False with errno. True on a file system that has no such thing.
bool sync_folder(const base::descriptor_t& folder) noexcept;

}  // namespace platform
