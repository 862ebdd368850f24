#include "radio/journal_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace radio::journal_file {

namespace {

using base::sqlite::execution_t;
using base::sqlite::run_all;

// Times: `came` in seconds since 1970, for people; `ran` and `finished`
// in seconds that the service had run by then. `parts` 0: not for the driver, which refuses it. `stored_as`, while it
// is being stored: the path of the file that appears.
constexpr const char* tables = R"(
    CREATE TABLE IF NOT EXISTS datagrams (
        id INTEGER PRIMARY KEY,
        came INTEGER NOT NULL,
        ran INTEGER NOT NULL,
        technology INTEGER NOT NULL,
        octets BLOB NOT NULL,
        identity BLOB NOT NULL UNIQUE,
        sender TEXT NOT NULL,
        message TEXT NOT NULL,
        stamp INTEGER NOT NULL,
        part INTEGER NOT NULL,
        parts INTEGER NOT NULL,
        body BLOB NOT NULL,
        finished INTEGER,
        stored_as TEXT);
    CREATE INDEX IF NOT EXISTS stored ON datagrams (stored_as) WHERE stored_as IS NOT NULL;
    CREATE INDEX IF NOT EXISTS gone ON datagrams (finished) WHERE finished IS NOT NULL;
    CREATE TABLE IF NOT EXISTS texts (id INTEGER PRIMARY KEY, came INTEGER NOT NULL, length INTEGER NOT NULL, pdu TEXT NOT NULL);
    CREATE TABLE IF NOT EXISTS clock (only INTEGER PRIMARY KEY CHECK (only = 1), ran INTEGER NOT NULL);
    INSERT OR IGNORE INTO clock VALUES (1, 0);
)";

// What the first version knew of a datagram: all of it stands in its octets. Those of one that had been handed over are
// its identity.
bool copy_rows(sqlite3* connection, const char* select, bool finished, int64_t& id) {
    const base::sqlite::statement_t source = base::sqlite::prepare(connection, select);
    const base::sqlite::statement_t copies = base::sqlite::prepare(connection, insertion);
    execution_t query(source);
    int result = 0;
    while ((result = query.step()) == SQLITE_ROW) {
        const auto octets = query.octets(2);
        const auto technology = static_cast<technology_t>(query.number(1));
        std::optional<card_datagram_t> card = card_datagram_of(technology, octets);
        if (!card) {
            continue;
        }
        const arrival_t arrival{technology, {octets.begin(), octets.end()}, std::move(*card)};
        row_t row = row_of(arrival, ++id, query.number(0), 0);
        row.finished = finished ? std::optional<int64_t>(0) : std::nullopt;
        if (insert(copies, arrival, row) != SQLITE_DONE) {
            return false;
        }
    }
    return result == SQLITE_DONE;
}

bool bring_up_to_date(sqlite3* connection) {
    int64_t id = 0;
    return run_all(connection, "ALTER TABLE datagrams RENAME TO old_datagrams") && run_all(connection, tables) &&
           copy_rows(connection, "SELECT at, 0, identity FROM finished ORDER BY at", true, id) &&
           copy_rows(connection, "SELECT came, technology, octets FROM old_datagrams ORDER BY id", false, id) &&
           run_all(connection, "DROP TABLE old_datagrams; DROP TABLE finished");
}

}  // namespace

const char* const insertion =
    "INSERT INTO datagrams VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, NULL)";

row_t row_of(const arrival_t& arrival, int64_t id, int64_t came, int64_t ran) {
    row_t row;
    row.id = id;
    row.came = came;
    row.ran = ran;
    row.sender = arrival.card.number;
    row.place = assembly::place_of(arrival.card.header);
    row.stamp = arrival.card.stamp.value_or(ran);  // without one the order of arrival is all there is
    if (row.place && row.place->parts > 1) {
        row.message =
            fmt::format("{}/{}/{}/{}", arrival.card.sender, row.place->width, row.place->reference, row.place->parts);
    }
    return row;
}

int insert(const base::sqlite::statement_t& prepared, const arrival_t& arrival, const row_t& row) {
    execution_t execution(prepared);
    execution.bind(1, row.id);
    execution.bind(2, row.came);
    execution.bind(3, row.ran);
    execution.bind(4, static_cast<int64_t>(arrival.technology));
    execution.bind(5, arrival.octets);
    execution.bind(6, arrival.card.identity);
    execution.bind(7, row.sender);
    execution.bind(8, row.message);
    execution.bind(9, row.stamp);
    execution.bind(10, static_cast<int64_t>(row.place ? row.place->part : 0));
    execution.bind(11, static_cast<int64_t>(row.place ? row.place->parts : 0));
    execution.bind(12, arrival.card.body);
    if (row.finished) {
        execution.bind(13, *row.finished);
    }
    return execution.step();
}

std::filesystem::path path(const std::filesystem::path& home) {
    return home / "journal.sqlite";
}

bool make_tables(sqlite3* connection, int64_t found_version) {
    const bool first_version =
        found_version == 0 &&
        base::sqlite::number(connection, "SELECT 1 FROM sqlite_schema WHERE name = 'finished'").has_value();
    return first_version ? bring_up_to_date(connection) : run_all(connection, tables);
}

bool read(sqlite3* connection, contents_t& contents) {
    const base::sqlite::statement_t statement = base::sqlite::prepare(
        connection,
        "SELECT id, message, sender, parts, part, stamp, ran, finished IS NOT NULL, coalesce(finished, 0), body "
        "FROM datagrams ORDER BY id");
    execution_t query(statement);
    int result = 0;
    while ((result = query.step()) == SQLITE_ROW) {
        const int64_t id = query.number(0);
        const int64_t parts = query.number(3);
        const int64_t part = query.number(4);
        const int64_t ran = query.number(6);
        const bool gone = query.number(7) != 0;
        contents.last_id = id;
        ++(gone ? contents.gone : contents.waiting);
        contents.ran = std::max({contents.ran, ran, query.number(8)});
        if (parts > 1) {
            group_t& group = contents.groups[query.text(1)];
            group.sender = query.text(2);
            group.parts = static_cast<size_t>(parts);
            if (part >= 1 && part <= parts && part <= UINT8_MAX) {  // else somebody else's row
                assembly::insert(group.records,
                                 {id, query.number(5), ran, static_cast<uint8_t>(part), gone, query.text(9)});
            }
        } else if (!gone) {
            contents.alone.push_back({id, query.text(2), parts == 0});
        }
    }
    const std::optional<int64_t> clock = base::sqlite::number(connection, "SELECT ran FROM clock");
    contents.ran = std::max(contents.ran, clock.value_or(0));
    return result == SQLITE_DONE;
}

}  // namespace radio::journal_file
