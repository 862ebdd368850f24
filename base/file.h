/// Files as a whole.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace base {

/// Reads the octets of a file; of one that has more than `limit` a little more than that. Returns 0 or errno.
[[nodiscard]] int read_file(const std::filesystem::path& file, size_t limit, std::string* octets);
[[nodiscard]] int read_standard_input(size_t limit, std::string* octets);

}  // namespace base
