/// Files that are appended to for as long as the driver runs: its log.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>

namespace platform {

/// Octets that a file may have; each that is opened for appending, also those that are open. Without a bound at first.
void bound_appended_files(uint64_t octets);

/// A stream that appends to a regular file, each write at the end that it then has, whoever else writes; with `update`
/// it reads, too. Null with errno.
///
/// Writes go by the name: when the file was moved away or deleted, the next one makes a new file, and the folder if
/// that is gone. A file that a write would take over its bound is first renamed to NAME.1, in place of what has that
/// name. No write is lost: one that comes while the name changes, or when no new file can be made, goes to the former
/// file.
///
/// Threads: streams of several may be on one file.
FILE* open_appended_file(const std::filesystem::path& path, bool update);

}  // namespace platform
