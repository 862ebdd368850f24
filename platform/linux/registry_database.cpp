#include "platform/linux/registry_database.h"

#include <cstring>
#include <limits>

#include "base/clock.h"
#include "base/sqlite_file.h"
#include "base/text.h"
#include "base/told_line.h"

namespace platform {
namespace {

using base::sqlite::execution_t;

constexpr int opening_timeout_ms = 5000;
// Another process writes. The driver waits under its lock, with all its clients: not for one that hangs.
constexpr int busy_timeout_ms = 100;

// Of the tables. A file of version 0 is new, or from before versions were counted, with the same tables.
constexpr int64_t version = 1;

constexpr const char* schema = R"(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = NORMAL;
    PRAGMA wal_autocheckpoint = 250;
    CREATE TABLE IF NOT EXISTS registry (
        key TEXT NOT NULL COLLATE NOCASE,
        name TEXT COLLATE NOCASE,
        type INTEGER,
        data,
        UNIQUE (key, name));
    CREATE UNIQUE INDEX IF NOT EXISTS registry_keys ON registry (key) WHERE name IS NULL;
)";
constexpr const char* count_version = "PRAGMA user_version = 1;";

LONG error_of(int result) {
    switch (result & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return ERROR_SUCCESS;
        case SQLITE_PERM:
        case SQLITE_READONLY:
        case SQLITE_CANTOPEN:
        case SQLITE_AUTH:
            return ERROR_ACCESS_DENIED;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return ERROR_INVALID_DATA;
        case SQLITE_NOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case SQLITE_TOOBIG:
            return ERROR_INVALID_PARAMETER;
        default:
            return ERROR_GEN_FAILURE;
    }
}

/// The busy timeout does not cover the switch to the write-ahead log: of processes that make one file at once, all but
/// the first would fail.
int make_tables(sqlite3* handle, int64_t found_version) {
    const uint64_t until = base::tick64() + opening_timeout_ms;
    const std::string statements = std::string(schema) + (found_version < version ? count_version : "");
    int result = sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr);
    while ((result & 0xFF) == SQLITE_BUSY && base::tick64() < until) {
        sqlite3_sleep(1);
        result = sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr);
    }
    return result;
}

LONG run(const base::sqlite::statement_t& statement) {
    return error_of(execution_t(statement).step());
}

template <typename number_t>
std::vector<uint8_t> octets_of(number_t number) {
    std::vector<uint8_t> octets(sizeof(number));
    std::memcpy(octets.data(), &number, sizeof(number));
    return octets;
}

/// A number that somebody wrote with another tool may need more than a DWORD; its reader then sees that it is none.
std::vector<uint8_t> number_data(int64_t number) {
    const bool fits = number >= 0 && number <= std::numeric_limits<uint32_t>::max();
    return fits ? octets_of(static_cast<uint32_t>(number)) : octets_of(number);
}

/// REG_SZ is UTF-16 with its terminator.
std::vector<uint8_t> string_data(const std::string& text) {
    const std::u16string wide = base::to_utf16(text);
    std::vector<uint8_t> octets((wide.size() + 1) * sizeof(char16_t));
    std::memcpy(octets.data(), wide.c_str(), octets.size());
    return octets;
}

std::vector<uint8_t> row_data(const execution_t& row, int column, DWORD type) {
    if (row.column_type(column) == SQLITE_INTEGER) {
        return number_data(row.number(column));
    }
    if (row.column_type(column) == SQLITE_TEXT && type == REG_SZ) {
        return string_data(row.text(column));
    }
    const auto octets = row.octets(column);
    return {octets.begin(), octets.end()};
}

/// The text of a REG_SZ in UTF-8; of data that is not just that, something that does not come back the same.
std::string string_text(std::span<const uint8_t> data) {
    std::u16string wide(data.size() / sizeof(char16_t), u'\0');
    if (!wide.empty()) {
        std::memcpy(wide.data(), data.data(), wide.size() * sizeof(char16_t));
        wide.pop_back();
    }
    return base::to_utf8(wide);
}

bool equal(const std::vector<uint8_t>& ours, std::span<const uint8_t> theirs) {
    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end());
}

}  // namespace

LONG registry_database_t::open(const std::filesystem::path& file, std::shared_ptr<registry_database_t>& database,
                               std::string& reason) {
    auto opened = std::make_shared<registry_database_t>();
    opened->path = file;
    sqlite3* handle = nullptr;
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
    opened->connection.reset(handle);
    std::string problem;
    LONG error = result == SQLITE_OK ? opened->prepare(problem) : error_of(result);
    if (error == ERROR_SUCCESS) {
        error = opened->check(problem);
    }
    if (error == ERROR_SUCCESS) {
        database = std::move(opened);
    } else {
        reason = "the registry " + file.native() +
                 " cannot be used: " + (problem.empty() ? base::sqlite::failure_of(handle) : problem);
    }
    return error;
}

// SQLite opens a file that cannot be written for reading alone, and one with damaged pages as though it were whole.
LONG registry_database_t::check(std::string& reason) const {
    sqlite3* const handle = connection.get();
    if (sqlite3_db_readonly(handle, "main") != 0) {
        reason = "it cannot be written; it must be a file of the user who runs the service";
        return ERROR_ACCESS_DENIED;
    }
    const base::sqlite::statement_t statement = base::sqlite::prepare(handle, "PRAGMA quick_check(1)");
    if (statement == nullptr) {
        return error_of(sqlite3_errcode(handle));
    }
    execution_t row(statement);
    const int result = row.step();
    if (result == SQLITE_ROW && row.text(0) != "ok") {
        reason = row.text(0) + "; put back a copy of it, or move it away to begin with default settings";
        return ERROR_INVALID_DATA;
    }
    return error_of(result);
}

// Right after the call that failed, under the same lock.
LONG registry_database_t::told(LONG error, const std::string& what) const {
    if (error != ERROR_SUCCESS) {
        base::tell_line(stderr, base::priority_t::error,
                        "zpd: " + what + " cannot be written to the registry " + path.native() + ": " +
                            base::sqlite::failure_of(connection.get()));
    }
    return error;
}

LONG registry_database_t::prepare(std::string& reason) {
    sqlite3* const handle = connection.get();
    sqlite3_busy_timeout(handle, opening_timeout_ms);
    const int64_t found_version = base::sqlite::number(handle, "PRAGMA user_version").value_or(0);
    if (found_version > version) {
        reason = "it is of a newer version of this program";
        return ERROR_INVALID_DATA;
    }
    if (const int result = make_tables(handle, found_version); result != SQLITE_OK) {
        return error_of(result);
    }
    const std::pair<base::sqlite::statement_t*, const char*> texts[] = {
        {&key_query, "SELECT key FROM registry WHERE key = ?1 LIMIT 1"},
        {&key_insert, "INSERT INTO registry (key) VALUES (?1)"},
        {&value_query, "SELECT type, data FROM registry WHERE key = ?1 AND name = ?2"},
        {&value_update,
         "INSERT INTO registry (key, name, type, data) VALUES (?1, ?2, ?3, ?4) "
         "ON CONFLICT (key, name) DO UPDATE SET type = excluded.type, data = excluded.data"},
        {&begin, "BEGIN IMMEDIATE"},
        {&commit, "COMMIT"},
        {&rollback, "ROLLBACK"},
    };
    for (const auto& [statement, text] : texts) {
        *statement = base::sqlite::prepare(handle, text);
        if (*statement == nullptr) {
            return error_of(sqlite3_errcode(handle));
        }
    }
    sqlite3_busy_timeout(handle, busy_timeout_ms);
    return ERROR_SUCCESS;
}

LONG registry_database_t::look_up(std::string& key) {
    const std::string wanted = key;
    execution_t query(key_query);
    query.bind(1, std::string_view(wanted));
    const int result = query.step();
    if (result == SQLITE_ROW) {
        key = query.text(0);
    }
    return result == SQLITE_DONE ? LONG{ERROR_FILE_NOT_FOUND} : error_of(result);
}

LONG registry_database_t::find_key(std::string& key) {
    const std::lock_guard lock(mutex);
    return look_up(key);
}

LONG registry_database_t::create_key(std::string& key, size_t root_length, bool& created) {
    const std::lock_guard lock(mutex);
    created = false;
    if (const LONG error = look_up(key); error != ERROR_FILE_NOT_FOUND) {
        return error;
    }
    if (const LONG error = run(begin); error != ERROR_SUCCESS) {
        return told(error, key);
    }
    LONG error = create_missing(key, root_length, created);
    if (error == ERROR_SUCCESS) {
        error = run(commit);
    }
    if (told(error, key) != ERROR_SUCCESS) {
        static_cast<void>(run(rollback));
    }
    return error;
}

LONG registry_database_t::create_missing(std::string& key, size_t root_length, bool& created) {
    for (size_t end = root_length; end != std::string::npos;) {
        end = key.find('\\', end + 1);
        std::string part = key.substr(0, end);
        const LONG found = look_up(part);
        created = found == ERROR_FILE_NOT_FOUND;
        if (created) {
            execution_t add(key_insert);
            add.bind(1, std::string_view(part));
            if (const LONG error = error_of(add.step()); error != ERROR_SUCCESS) {
                return error;
            }
        } else if (found != ERROR_SUCCESS) {
            return found;
        }
        key.replace(0, part.size(), part);  // the same letters, in the spelling that stands already
    }
    return ERROR_SUCCESS;
}

LONG registry_database_t::read(std::string_view key, std::string_view name, registry_value_t& value) {
    const std::lock_guard lock(mutex);
    execution_t query(value_query);
    query.bind(1, key);
    query.bind(2, name);
    const int result = query.step();
    if (result != SQLITE_ROW) {
        return result == SQLITE_DONE ? LONG{ERROR_FILE_NOT_FOUND} : error_of(result);
    }
    value.type = static_cast<DWORD>(query.number(0));
    value.data = row_data(query, 1, value.type);
    return ERROR_SUCCESS;
}

LONG registry_database_t::write(std::string_view key, std::string_view name, DWORD type,
                                std::span<const uint8_t> data) {
    const std::lock_guard lock(mutex);
    const std::string text = type == REG_SZ ? string_text(data) : std::string();
    execution_t update(value_update);
    update.bind(1, key);
    update.bind(2, name);
    update.bind(3, int64_t{type});
    if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, data.data(), sizeof(number));
        update.bind(4, int64_t{number});
    } else if (type == REG_SZ && equal(string_data(text), data)) {
        update.bind(4, std::string_view(text));
    } else {
        update.bind(4, data);
    }
    return told(error_of(update.step()), std::string(key) + '\\' + std::string(name));
}

// Whatever was committed is either in the log, which is synced here, or was moved from there to the file by a
// checkpoint, which syncs on its own. A full checkpoint would do as well, but it waits for other processes' readers.
LONG registry_database_t::flush() {
    const std::lock_guard lock(mutex);
    sqlite3_file* log = nullptr;
    const int result = sqlite3_file_control(connection.get(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (result != SQLITE_OK || log == nullptr || log->pMethods == nullptr) {
        return error_of(result);  // no log is open: nothing was written
    }
    return error_of(log->pMethods->xSync(log, SQLITE_SYNC_NORMAL));
}

// Waits for readers, for the busy timeout; what they keep from being moved stays in the log.
void registry_database_t::checkpoint() {
    const std::lock_guard lock(mutex);
    sqlite3_wal_checkpoint_v2(connection.get(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

}  // namespace platform
