#include "service/inbox.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <tuple>

#include "base/descriptor.h"
#include "base/own_file.h"

namespace {

using base::sqlite::execution_t;

constexpr int64_t version = 1;
constexpr const char* table =
    "CREATE TABLE IF NOT EXISTS cards (number INTEGER PRIMARY KEY AUTOINCREMENT, file TEXT NOT NULL UNIQUE)";

// A number changes two pages: a log of 100 KB serves as well as the usual one, where there is little room.
constexpr const char* short_log = "PRAGMA wal_autocheckpoint = 25";

constexpr int64_t rows_at_once = 256;

// Two changes of a folder within one tick of the file system's clock, 2 s at most, have the same time.
constexpr std::chrono::seconds tick(3);

std::vector<std::string> without(const std::vector<std::string>& all, const std::vector<std::string>& these) {
    std::vector<std::string> left;
    std::ranges::set_difference(all, these, std::back_inserter(left));
    return left;
}

/// SQLite opens no file below a link; a home may be one.
std::filesystem::path without_links(const std::filesystem::path& home) {
    std::error_code failed;
    std::filesystem::path path = std::filesystem::weakly_canonical(home, failed);
    return failed ? home : path;
}

bool in_order(const inbox_t::numbered_card_t& one, const inbox_t::numbered_card_t& other) {
    return std::tie(one.card.time, one.card.name) < std::tie(other.card.time, other.card.name);
}

}  // namespace

inbox_t::inbox_t(const std::filesystem::path& home)
    : folder_(home),
      file_(numbers_file(without_links(home))),
      numbers_({"the file of the cards' numbers", "cards have no numbers"},
               [this](const std::string& text) { problem_ = text; }) {}

std::filesystem::path inbox_t::numbers_file(const std::filesystem::path& home) {
    return home / "inbox.sqlite";
}

std::vector<std::string> inbox_t::list(uint64_t after, const take_t& take) {
    std::vector<std::string> errors;
    std::string error;
    for (std::vector<row_t> rows = rows_after(after); !rows.empty(); rows = rows_after(after)) {
        for (const auto& [number, file] : rows) {
            stored_card_t card;
            const inbox_folder_t::file_t kind = folder_.read(file, &card, &error);
            if (kind == inbox_folder_t::file_t::card && !take({number, std::move(card)})) {
                return errors;
            }
            if (kind == inbox_folder_t::file_t::unreadable) {
                errors.push_back(error);
            }
            after = number;
        }
    }
    for (numbered_card_t& card : unnumbered(errors)) {
        if (!take(std::move(card))) {
            break;
        }
    }
    return errors;
}

// The folder is looked at when the rows are at their end: what is new comes after them.
std::vector<inbox_t::row_t> inbox_t::rows_after(uint64_t after) {
    const std::lock_guard lock(mutex_);
    std::vector<row_t> rows = query(after);
    if (rows.empty()) {
        refresh();
        rows = query(after);
    }
    return rows;
}

std::vector<inbox_t::numbered_card_t> inbox_t::unnumbered(std::vector<std::string>& errors) {
    std::vector<std::string> names;
    {
        const std::lock_guard lock(mutex_);
        names = unnumbered_;
        if (!folder_problem_.empty()) {
            errors.push_back(folder_problem_);
        }
    }
    std::vector<numbered_card_t> cards;
    for (const std::string& name : names) {
        numbered_card_t one;
        std::string error;
        const inbox_folder_t::file_t kind = folder_.read(name, &one.card, &error);
        if (kind == inbox_folder_t::file_t::card) {
            cards.push_back(std::move(one));
        } else if (kind == inbox_folder_t::file_t::unreadable) {
            errors.push_back(error);
        }
    }
    std::ranges::sort(cards, in_order);
    return cards;
}

std::optional<std::string> inbox_t::file_of(uint64_t number) {
    const std::lock_guard lock(mutex_);
    auto file = file_in_row(number);
    if (!file) {
        refresh();
        file = file_in_row(number);
    }
    return file && folder_.has(*file) ? file : std::nullopt;
}

std::optional<uint64_t> inbox_t::number_of(const std::string& file) {
    const std::lock_guard lock(mutex_);
    if (!looked_) {
        refresh();  // what came before it goes first
    }
    if (const auto number = row_of(file)) {
        return number;
    }
    // Without a wait for the disk: a loss of power takes the number back, and it is given again.
    if (!folder_.has(file) || !open() || !numbers_.soon([&] { return insert(file); })) {
        return std::nullopt;
    }
    return row_of(file);
}

std::string inbox_t::remove(const std::string& file) {
    std::error_code failed;
    if (!std::filesystem::remove(folder_.file(file), failed)) {
        return failed ? fmt::format("cannot remove {}: {}", folder_.file(file).native(), failed.message())
                      : fmt::format("the stored card {} is gone", folder_.file(file).native());
    }
    const std::lock_guard lock(mutex_);
    if (numbers_.is_open()) {
        numbers_.run("DELETE FROM cards WHERE file = ?1", std::string_view(file));  // else with the next look
    }
    return {};
}

std::string inbox_t::problem() const {
    const std::lock_guard lock(mutex_);
    return problem_;
}

bool inbox_t::has_changed() const {
    const std::lock_guard lock(mutex_);
    return !is_as_seen();
}

bool inbox_t::is_as_seen() const {
    std::error_code failed;
    return seen_ && *seen_ == std::filesystem::last_write_time(folder_.path(), failed) && !failed;
}

bool inbox_t::open() {
    if (numbers_.is_open()) {
        return true;
    }
    std::string problem;
    if (!base::open_own_file(file_, O_RDWR | O_CREAT, problem)) {
        problem_ = problem;
        return false;
    }
    problem_ = numbers_.open(file_, version, [](sqlite3* connection, int64_t) {
        return base::sqlite::run_all(connection, table) && base::sqlite::run_all(connection, short_log);
    });
    return problem_.empty();
}

void inbox_t::refresh() {
    if (is_as_seen() && problem_.empty()) {
        return;
    }
    std::error_code failed;
    const auto now = std::filesystem::file_time_type::clock::now();
    const auto changed = std::filesystem::last_write_time(folder_.path(), failed);
    looked_ = true;
    difference_t difference;
    if (differ(difference)) {
        number_all(difference);
    }
    unnumbered_ = std::move(difference.added);
    seen_ = !failed && folder_problem_.empty() && now - changed > tick ? std::optional(changed) : std::nullopt;
}

/// False when the folder cannot be read, or has cards of which no numbers can be had.
bool inbox_t::differ(difference_t& difference) {
    difference = {};
    folder_problem_.clear();
    std::vector<std::string> names = folder_.names(&folder_problem_);
    std::ranges::sort(names);
    std::error_code failed;
    const bool nothing = names.empty() && !std::filesystem::exists(file_, failed);
    if (!folder_problem_.empty() || nothing) {
        return false;
    }
    difference.added = names;
    if (!open()) {
        return false;
    }
    std::vector<std::string> known;
    execution_t query(numbers_.statement("SELECT file FROM cards ORDER BY file"));
    int result = 0;
    while ((result = query.step()) == SQLITE_ROW) {
        known.push_back(query.text(0));
    }
    if (result != SQLITE_DONE) {
        return numbers_.fail();
    }
    difference.added = without(names, known);
    // Of a whole folder that is away, as one on another disk can be, nothing is forgotten.
    if (std::filesystem::exists(folder_.path(), failed)) {
        difference.gone = without(known, names);
    }
    return true;
}

/// What then has no number stays in `difference.added`.
void inbox_t::number_all(difference_t& difference) {
    if (difference.added.empty() && difference.gone.empty()) {
        problem_.clear();
        return;
    }
    const bool done = numbers_.transaction([&] {
        // Another process may have been first.
        if (!differ(difference)) {
            return false;
        }
        std::vector<numbered_card_t> cards;
        for (const std::string& name : difference.added) {
            numbered_card_t one;
            std::string error;
            if (folder_.read(name, &one.card, &error) == inbox_folder_t::file_t::card) {
                cards.push_back(std::move(one));
            }
        }
        std::ranges::sort(cards, in_order);
        return std::ranges::all_of(cards, [&](const auto& one) { return insert(one.card.name); }) &&
               std::ranges::all_of(difference.gone, [&](const std::string& file) {
                   return numbers_.run("DELETE FROM cards WHERE file = ?1", std::string_view(file));
               });
    });
    if (!done) {
        problem_ = problem_.empty() ? fmt::format("cannot write {}", file_.native()) : problem_;
        return;
    }
    problem_.clear();
    differ(difference);
}

bool inbox_t::insert(const std::string& file) {
    return numbers_.run("INSERT OR IGNORE INTO cards (file) VALUES (?1)", std::string_view(file));
}

std::vector<inbox_t::row_t> inbox_t::query(uint64_t after) {
    std::vector<row_t> rows;
    if (!numbers_.is_open() || after > INT64_MAX) {
        return rows;
    }
    execution_t query(numbers_.statement("SELECT number, file FROM cards WHERE number > ?1 ORDER BY number LIMIT ?2"));
    query.bind(1, static_cast<int64_t>(after));
    query.bind(2, rows_at_once);
    int result = 0;
    while ((result = query.step()) == SQLITE_ROW) {
        rows.emplace_back(static_cast<uint64_t>(query.number(0)), query.text(1));
    }
    if (result != SQLITE_DONE) {
        numbers_.fail();
    }
    return rows;
}

std::optional<uint64_t> inbox_t::row_of(const std::string& file) {
    if (!numbers_.is_open()) {
        return std::nullopt;
    }
    execution_t query(numbers_.statement("SELECT number FROM cards WHERE file = ?1"));
    query.bind(1, std::string_view(file));
    return query.step() == SQLITE_ROW ? std::optional(static_cast<uint64_t>(query.number(0))) : std::nullopt;
}

std::optional<std::string> inbox_t::file_in_row(uint64_t number) {
    if (!numbers_.is_open() || number > INT64_MAX) {
        return std::nullopt;
    }
    execution_t query(numbers_.statement("SELECT file FROM cards WHERE number = ?1"));
    query.bind(1, static_cast<int64_t>(number));
    return query.step() == SQLITE_ROW ? std::optional(query.text(0)) : std::nullopt;
}
