/// The received cards by numbers, which people and scripts can keep: a card's number never changes, and none is given
/// twice. They are given in the order of arrival, to whatever lies in the folder when somebody asks, and kept in an
/// SQLite file in the home. Where that cannot be written, on a full disk or in somebody else's home, new cards have no
/// number; all else works.
///
/// Any thread; another process may use the same home. Nothing is made in a home without cards.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/sqlite_file.h"
#include "service/inbox_folder.h"

class inbox_t {
  public:
    struct numbered_card_t {
        std::optional<uint64_t> number;
        stored_card_t card;
    };
    /// False: enough.
    using take_t = std::function<bool(numbered_card_t card)>;

    explicit inbox_t(const std::filesystem::path& home);

    /// Gives `take` the cards with numbers after this one, in their order, then those that have none, the oldest first.
    /// Reads no more of them than it takes. Returns what could not be read, and why.
    std::vector<std::string> list(uint64_t after, const take_t& take);

    /// The name of a card's file; none for a number that no card has, or has any more.
    std::optional<std::string> file_of(uint64_t number);
    /// The number of a card that lies in the folder, by the name of its file.
    std::optional<uint64_t> number_of(const std::string& file);
    /// Returns an empty text, or why it cannot.
    [[nodiscard]] std::string remove(const std::string& file);

    /// Why cards have no numbers; empty when they have.
    std::string problem() const;
    /// False when the folder is as it was when it was looked at last.
    bool has_changed() const;
    const inbox_folder_t& folder() const { return folder_; }

    /// The SQLite file of a home.
    static std::filesystem::path numbers_file(const std::filesystem::path& home);

  private:
    using row_t = std::pair<uint64_t, std::string>;
    /// How the folder and the table differ.
    struct difference_t {
        std::vector<std::string> added;  // names without a row
        std::vector<std::string> gone;   // of rows without a file
    };

    std::vector<row_t> rows_after(uint64_t after);
    std::vector<numbered_card_t> unnumbered(std::vector<std::string>& errors);

    // With the lock held:
    bool open();
    bool is_as_seen() const;
    void refresh();
    bool differ(difference_t& difference);
    void number_all(difference_t& difference);
    bool insert(const std::string& file);
    std::vector<row_t> query(uint64_t after);
    std::optional<uint64_t> row_of(const std::string& file);
    std::optional<std::string> file_in_row(uint64_t number);

    const inbox_folder_t folder_;
    const std::filesystem::path file_;

    mutable std::mutex mutex_;  // of what follows
    std::string problem_;
    base::sqlite::file_t numbers_;
    std::vector<std::string> unnumbered_;  // files without a row, when the folder was looked at last
    std::string folder_problem_;           // why that could not be
    /// When the folder had changed last before it was looked at, if that was so long before that a change since then
    /// shows.
    std::optional<std::filesystem::file_time_type> seen_;
    bool looked_ = false;
};
