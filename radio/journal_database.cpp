#include "radio/journal_database.h"

#include <fmt/format.h>

#include <utility>

#include "radio/journal_file.h"
#include "radio/warning.h"

namespace radio {

namespace {

// Somebody looks into the file with a tool of his own. The modem and the driver do not wait for him: what could not be
// done is done soon after.
constexpr int busy_timeout_ms = 100;

}  // namespace

std::string journal_database_t::open(const std::filesystem::path& file) {
    file_ = file;
    sqlite3* handle = nullptr;
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
    connection_.reset(handle);
    const std::string error = result == SQLITE_OK ? journal_file::prepare(handle) : base::sqlite::failure_of(handle);
    if (!error.empty()) {
        connection_.reset();
        return fmt::format("cannot use the journal {}: {}", file.native(), error);
    }
    sqlite3_busy_timeout(handle, busy_timeout_ms);
    return {};
}

const base::sqlite::statement_t& journal_database_t::statement(std::string_view text) {
    const auto known = statements_.find(text);
    return known != statements_.end()
               ? known->second
               : statements_.emplace(text, base::sqlite::prepare(connection_.get(), text)).first->second;
}

bool journal_database_t::fail() {
    return fail(fmt::format("cannot use the journal {}: {}; messages stay on the modem", file_.native(),
                            base::sqlite::failure_of(connection_.get())));
}

bool journal_database_t::fail(const std::string& text) {
    if (!std::exchange(failure_told_, true)) {
        warn(text);
    }
    return false;
}

bool journal_database_t::succeed() {
    failure_told_ = false;
    return true;
}

bool journal_database_t::roll_back() {
    sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
}

void journal_database_t::set_synchronous(bool full) {
    const char* const setting = full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL";
    sqlite3_exec(connection_.get(), setting, nullptr, nullptr, nullptr);
}

}  // namespace radio
