/// Which cards the program of `zpd serve --on-card` is still to be run for, in an SQLite file of the home: what is
/// noted is on the disk. Not thread-safe.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/sqlite_file.h"

class on_card_marks_t {
  public:
    struct unfinished_t {
        uint64_t card = 0;
        int64_t runs = 0;  // that have begun
    };

    /// `tell` says what fails, once until something succeeds.
    explicit on_card_marks_t(std::function<void(const std::string&)> tell);

    /// Returns an empty text, or why not.
    [[nodiscard]] std::string open(const std::filesystem::path& home);
    static std::filesystem::path path(const std::filesystem::path& home);

    /// The last card that has had its first run, or was there before; none in a new file.
    std::optional<uint64_t> last();
    [[nodiscard]] bool set_last(uint64_t card);
    /// Cards whose runs did not end well, and are not given up.
    std::vector<unfinished_t> unfinished();

    /// A run for a card begins: how many that makes. None when it could not be noted.
    std::optional<int64_t> note_begin(uint64_t card);
    /// There is to be no other one.
    bool note_end(uint64_t card);

  private:
    base::sqlite::file_t file_;
};
