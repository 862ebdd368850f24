#include "base/sqlite_file.h"

#include <fmt/format.h>

namespace base::sqlite {

namespace {

// Somebody looks into the file with a tool of his own. At the start he is waited for; the modem and the driver do not
// wait: what could not be done is done soon after.
constexpr int first_busy_timeout_ms = 5000;
constexpr int busy_timeout_ms = 100;

// The log of what was written begins anew at 1 MB: a disk may have little room.
constexpr const char* settings =
    "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 250;";

// SQLite opens a file with damaged pages as though it were whole.
std::string damage(sqlite3* connection) {
    const statement_t statement = prepare(connection, "PRAGMA quick_check(1)");
    execution_t check(statement);
    if (check.step() != SQLITE_ROW) {
        return failure_of(connection);
    }
    const std::string verdict = check.text(0);
    return verdict == "ok" ? std::string() : verdict + "; put back a copy of it, or move it away";
}

std::string bring_up_to_date(sqlite3* connection, int64_t version, const file_t::make_tables_t& make_tables) {
    sqlite3_busy_timeout(connection, first_busy_timeout_ms);
    if (!run_all(connection, settings)) {
        return failure_of(connection);
    }
    if (std::string damaged = damage(connection); !damaged.empty()) {
        return damaged;
    }
    const std::optional<int64_t> found = number(connection, "PRAGMA user_version");
    if (found.value_or(0) > version) {
        return "it is of a newer version of this program";
    }
    // A version that is there already is not written again: each start would wait for the disk.
    const std::string end = found == version ? "COMMIT" : fmt::format("PRAGMA user_version = {}; COMMIT", version);
    if (!found || !run_all(connection, "BEGIN IMMEDIATE") || !make_tables(connection, *found) ||
        !run_all(connection, end.c_str())) {
        std::string error = failure_of(connection);
        run_all(connection, "ROLLBACK");
        return error;
    }
    sqlite3_busy_timeout(connection, busy_timeout_ms);
    return {};
}

}  // namespace

bool run_all(sqlite3* connection, const char* statements) {
    return sqlite3_exec(connection, statements, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::optional<int64_t> number(sqlite3* connection, const char* text) {
    const statement_t statement = prepare(connection, text);
    execution_t query(statement);
    return query.first_number();
}

std::string file_t::open(const std::filesystem::path& file, int64_t version, const make_tables_t& make_tables) {
    file_ = file;
    sqlite3* handle = nullptr;
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
    connection_.reset(handle);
    const std::string error = result == SQLITE_OK ? bring_up_to_date(handle, version, make_tables) : failure_of(handle);
    if (!error.empty()) {
        connection_.reset();
        return fmt::format("cannot use {} {}: {}", words_.name, file.native(), error);
    }
    return {};
}

const statement_t& file_t::statement(std::string_view text) {
    const auto known = statements_.find(text);
    return known != statements_.end() ? known->second
                                      : statements_.emplace(text, prepare(connection_.get(), text)).first->second;
}

bool file_t::fail() {
    failure_ = failure_of(connection_.get());
    return fail(fmt::format("cannot use {} {}: {}; {}", words_.name, file_.native(), failure_, words_.consequence));
}

bool file_t::fail(const std::string& text) {
    if (!std::exchange(failure_told_, true)) {
        tell_(text);
    }
    return false;
}

bool file_t::succeed() {
    failure_told_ = false;
    return true;
}

bool file_t::roll_back() {
    run_all(connection_.get(), "ROLLBACK");
    return false;
}

void file_t::set_synchronous(bool full) {
    const char* const setting = full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL";
    run_all(connection_.get(), setting);
}

}  // namespace base::sqlite
