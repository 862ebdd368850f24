/// A file that a record is written to, its owner's alone. It takes so much, then it becomes the older one, FILE.1, as
/// does one that is there at the start, and a new one begins. Not thread-safe.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace base {

class record_file_t {
  public:
    static constexpr size_t usual_size = 10'000'000;  // octets

    explicit record_file_t(size_t size = usual_size) : size_(size) {}

    /// Begins the file with the time of day as a comment; nothing is opened that was there before, and no link is
    /// followed. Returns an empty text, or what failed, on what, and why; so does `write`.
    [[nodiscard]] std::string open(const std::filesystem::path& file);
    [[nodiscard]] std::string write(std::string_view text);

  private:
    [[nodiscard]] std::string begin();
    [[nodiscard]] bool write_out(std::string_view text);

    const size_t size_;
    std::filesystem::path file_;
    descriptor_t descriptor_;
    size_t written_ = 0;
};

}  // namespace base
