#include "service/outbox_file.h"

#include <iterator>
#include <string_view>

#include "service/event_log.h"

using base::sqlite::execution_t;

bool is_over(outbox_state_t state) {
    return state == outbox_state_t::sent || state == outbox_state_t::cancelled || state == outbox_state_t::set_aside;
}

const char* words_of(outbox_state_t state) {
    static constexpr const char* words[] = {"waiting", "sending", "cancelling", "sent", "cancelled", "set aside"};
    return static_cast<size_t>(state) < std::size(words) ? words[static_cast<size_t>(state)] : "unknown";
}

namespace outbox_file {

namespace {

// States are those of outbox_state_t. `held`: its number is held back. The octets stand last: who reads the rest does
// not read them. The indexes serve only who repeats their conditions: so costs do not grow with what was sent.
// `numbers` has those that are refused, until when, how often and why; `marks` the number of the last received card
// that was told of.
constexpr const char* tables = R"(
    CREATE TABLE IF NOT EXISTS messages (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        state INTEGER NOT NULL,
        held INTEGER NOT NULL,
        number TEXT NOT NULL,
        file TEXT NOT NULL,
        contacts TEXT NOT NULL,
        is_utf8 INTEGER NOT NULL,
        long_reference INTEGER NOT NULL,
        size INTEGER NOT NULL,
        datagrams INTEGER NOT NULL,
        sent INTEGER NOT NULL,
        handed_in INTEGER NOT NULL,
        expires INTEGER NOT NULL,
        changed INTEGER NOT NULL,
        refusals INTEGER NOT NULL,
        reason TEXT NOT NULL,
        advice TEXT NOT NULL,
        token TEXT UNIQUE,
        leased INTEGER NOT NULL,
        octets BLOB);
    CREATE INDEX IF NOT EXISTS ready ON messages (id, datagrams) WHERE state = 0 AND held = 0;
    CREATE INDEX IF NOT EXISTS waiting ON messages (number, id) WHERE state = 0;
    CREATE INDEX IF NOT EXISTS expiring ON messages (expires) WHERE state = 0 AND expires > 0;
    CREATE INDEX IF NOT EXISTS unsent_in_order ON messages (id) WHERE state NOT IN (3, 4);
    DROP INDEX IF EXISTS unsent;
    CREATE INDEX IF NOT EXISTS finished ON messages (changed) WHERE state IN (3, 4);
    CREATE TABLE IF NOT EXISTS numbers (
        number TEXT PRIMARY KEY,
        refusals INTEGER NOT NULL,
        until INTEGER NOT NULL,
        reason TEXT NOT NULL);
    CREATE INDEX IF NOT EXISTS holds ON numbers (until);
    CREATE TABLE IF NOT EXISTS marks (name TEXT PRIMARY KEY, value INTEGER NOT NULL);
)";

// In memory; what a transaction takes back it takes back here as well. What is sent or cancelled is counted from the
// start of the service on, and nobody reads that: so it may be deleted without a trigger.
constexpr const char* running_totals = R"(
    PRAGMA temp_store = MEMORY;
    CREATE TEMP TABLE totals (
        state INTEGER, held INTEGER, messages INTEGER NOT NULL DEFAULT 0, datagrams INTEGER NOT NULL DEFAULT 0,
        PRIMARY KEY (state, held)) WITHOUT ROWID;
    WITH RECURSIVE states (state) AS (SELECT 0 UNION ALL SELECT state + 1 FROM states WHERE state < 5)
        INSERT INTO totals (state, held) SELECT state, 0 FROM states UNION ALL SELECT state, 1 FROM states;
    INSERT OR REPLACE INTO totals
        SELECT state, held, count(*), sum(datagrams) FROM messages WHERE state NOT IN (3, 4) GROUP BY state, held;
    CREATE TEMP TRIGGER comes AFTER INSERT ON messages BEGIN
        UPDATE totals SET messages = messages + 1, datagrams = datagrams + NEW.datagrams
            WHERE state = NEW.state AND held = NEW.held;
    END;
    CREATE TEMP TRIGGER changes AFTER UPDATE OF state, held ON messages BEGIN
        UPDATE totals SET messages = messages - 1, datagrams = datagrams - OLD.datagrams
            WHERE state = OLD.state AND held = OLD.held;
        UPDATE totals SET messages = messages + 1, datagrams = datagrams + NEW.datagrams
            WHERE state = NEW.state AND held = NEW.held;
    END;
)";

}  // namespace

std::filesystem::path path(const std::filesystem::path& home) {
    return home / "outbox.sqlite";
}

bool make_tables(sqlite3* connection, int64_t found_version) {
    constexpr const char* add_leases = "ALTER TABLE messages ADD COLUMN leased INTEGER NOT NULL DEFAULT 0";
    return (found_version != 1 || base::sqlite::run_all(connection, add_leases)) &&
           base::sqlite::run_all(connection, tables) && event_log_t::make_table(connection);
}

bool keep_totals(sqlite3* connection) {
    return base::sqlite::run_all(connection, running_totals);
}

const char* const columns =
    "SELECT id, state, held, number, file, contacts, is_utf8, long_reference, size, datagrams, sent, handed_in, "
    "expires, changed, refusals, reason, advice, token, leased ";

outbox_message_t row(const execution_t& query) {
    return {.id = query.number(0),
            .state = static_cast<outbox_state_t>(query.number(1)),
            .held = query.number(2) != 0,
            .number = query.text(3),
            .file = query.text(4),
            .contacts = query.text(5),
            .is_utf8 = query.number(6) != 0,
            .long_reference = query.number(7) != 0,
            .size = query.number(8),
            .datagrams = query.number(9),
            .sent = query.number(10),
            .handed_in = query.number(11),
            .expires = query.number(12),
            .changed = query.number(13),
            .refusals = query.number(14),
            .reason = {query.text(15), query.text(16)},
            .token = query.text(17),
            .leased = query.number(18) != 0,
            .octets = {}};
}

std::optional<outbox_message_t> read(base::sqlite::file_t& file, int64_t id) {
    execution_t query(file.statement(std::string(columns) + "FROM messages WHERE id = ?1"));
    query.bind(1, id);
    return query.step() == SQLITE_ROW ? std::optional(row(query)) : std::nullopt;
}

std::string octets_of(base::sqlite::file_t& file, int64_t id) {
    execution_t query(file.statement("SELECT octets FROM messages WHERE id = ?1"));
    query.bind(1, id);
    return query.step() == SQLITE_ROW ? query.text(0) : std::string();
}

std::optional<int64_t> insert(base::sqlite::file_t& file, const outbox_message_t& message) {
    const std::span octets(reinterpret_cast<const uint8_t*>(message.octets.data()), message.octets.size());  // NOLINT
    const bool done = file.run(
        "INSERT INTO messages (state, held, number, file, contacts, is_utf8, long_reference, size, datagrams, sent, "
        "handed_in, expires, changed, refusals, reason, advice, token, leased, octets) "
        "VALUES (0, ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, 0, ?9, ?10, ?9, 0, '', '', nullif(?11, ''), ?12, ?13)",
        int64_t{message.held}, std::string_view(message.number), std::string_view(message.file),
        std::string_view(message.contacts), int64_t{message.is_utf8}, int64_t{message.long_reference}, message.size,
        message.datagrams, message.handed_in, message.expires, std::string_view(message.token), int64_t{message.leased},
        octets);
    return done ? std::optional<int64_t>(sqlite3_last_insert_rowid(file.connection())) : std::nullopt;
}

bool update(base::sqlite::file_t& file, const outbox_message_t& message) {
    return file.run(
        "UPDATE messages SET state = ?2, held = ?3, sent = ?4, changed = ?5, refusals = ?6, reason = ?7, advice = ?8, "
        "expires = ?9, leased = ?10, octets = iif(?2 IN (3, 4), NULL, octets) WHERE id = ?1",
        message.id, static_cast<int64_t>(message.state), int64_t{message.held}, message.sent, message.changed,
        message.refusals, std::string_view(message.reason.text), std::string_view(message.reason.advice),
        message.expires, int64_t{message.leased});
}

}  // namespace outbox_file
