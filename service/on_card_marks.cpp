#include "service/on_card_marks.h"

#include <utility>

namespace {

using base::sqlite::execution_t;

constexpr int64_t version = 1;
constexpr const char* tables = R"(
    CREATE TABLE IF NOT EXISTS last (only INTEGER PRIMARY KEY CHECK (only = 1), card INTEGER NOT NULL);
    CREATE TABLE IF NOT EXISTS unfinished (card INTEGER PRIMARY KEY, runs INTEGER NOT NULL);
)";

}  // namespace

on_card_marks_t::on_card_marks_t(std::function<void(const std::string&)> tell)
    : file_({"the file of the runs for cards", "the program is not run until it can be noted"}, std::move(tell)) {}

std::filesystem::path on_card_marks_t::path(const std::filesystem::path& home) {
    return home / "on-card.sqlite";
}

std::string on_card_marks_t::open(const std::filesystem::path& home) {
    return file_.open(path(home), version, [](sqlite3* connection, int64_t /*found_version*/) {
        return base::sqlite::run_all(connection, tables);
    });
}

std::optional<uint64_t> on_card_marks_t::last() {
    const auto card = base::sqlite::number(file_.connection(), "SELECT card FROM last");
    return card ? std::optional(static_cast<uint64_t>(*card)) : std::nullopt;
}

bool on_card_marks_t::set_last(uint64_t card) {
    return file_.transaction([&] {
        return file_.run("INSERT OR REPLACE INTO last (only, card) VALUES (1, ?1)", static_cast<int64_t>(card));
    });
}

std::vector<on_card_marks_t::unfinished_t> on_card_marks_t::unfinished() {
    std::vector<unfinished_t> cards;
    execution_t query(file_.statement("SELECT card, runs FROM unfinished ORDER BY card"));
    while (query.step() == SQLITE_ROW) {
        cards.push_back({static_cast<uint64_t>(query.number(0)), query.number(1)});
    }
    return cards;
}

std::optional<int64_t> on_card_marks_t::note_begin(uint64_t card) {
    const auto number = static_cast<int64_t>(card);
    const bool noted = file_.transaction([&] {
        return file_.run("UPDATE last SET card = max(card, ?1)", number) &&
               file_.run("INSERT INTO unfinished VALUES (?1, 1) ON CONFLICT (card) DO UPDATE SET runs = runs + 1",
                         number);
    });
    if (!noted) {
        return std::nullopt;
    }
    execution_t query(file_.statement("SELECT runs FROM unfinished WHERE card = ?1"));
    query.bind(1, number);
    return query.first_number();
}

bool on_card_marks_t::note_end(uint64_t card) {
    return file_.transaction(
        [&] { return file_.run("DELETE FROM unfinished WHERE card = ?1", static_cast<int64_t>(card)); });
}
