#include "radio/journal.h"

#include <fmt/format.h>

#include <utility>

#include "base/hex.h"
#include "base/text.h"
#include "radio/warning.h"

namespace radio {

namespace {

using base::sqlite::execution_t;

// FULL: a commit is on the disk when it returns. A message is its text and generation: 0, save when it began while an
// older one of the same text was incomplete. The driver tells messages apart by sender, alias and parts alone.
constexpr const char* schema = R"(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = FULL;
    CREATE TABLE IF NOT EXISTS datagrams (
        id INTEGER PRIMARY KEY,
        came INTEGER NOT NULL,
        technology INTEGER NOT NULL,
        octets BLOB NOT NULL,
        identity BLOB NOT NULL UNIQUE,
        sender TEXT NOT NULL,
        message TEXT NOT NULL,
        generation INTEGER NOT NULL,
        alias INTEGER NOT NULL,
        part INTEGER NOT NULL,
        parts INTEGER NOT NULL,
        body BLOB NOT NULL,
        UNIQUE (message, generation, part));
    CREATE INDEX IF NOT EXISTS aliases ON datagrams (sender, alias, parts);
    CREATE TABLE IF NOT EXISTS finished (identity BLOB PRIMARY KEY, at INTEGER NOT NULL) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS texts (id INTEGER PRIMARY KEY, came INTEGER NOT NULL, length INTEGER NOT NULL, pdu TEXT NOT NULL);
)";

constexpr int busy_timeout_ms = 5000;  // somebody looks into the file with a tool of his own

// The sender as the driver sees him, and a person reads him.
std::string sender_of(const RILMESSAGE& message) {
    const RILADDRESS& address = message.dwType == RIL_MSGTYPE_IN_DELIVER ? message.msgInDeliver.raOrigAddress
                                                                         : message.msgInCDMADeliver.raOrigAddress;
    return base::to_utf8(address.wszAddress);
}

// What the driver tells messages apart by.
std::string name_for_driver(const std::string& sender, uint16_t alias, unsigned parts) {
    return fmt::format("{}/{}/{}", alias, parts, sender);
}

}  // namespace

// Where a datagram belongs.
struct journal_t::place_t {
    std::string message;
    std::string sender;
    int64_t generation = 0;
    air::concatenation_t concatenation;
    uint16_t alias = 0;  // the reference that the driver gets
    bool taken = false;  // by the same datagram, sent once more
};

template <typename... values_t>
bool journal_t::run(std::string_view text, const values_t&... values) {
    execution_t execution(statement(text));
    int index = 0;
    (execution.bind(++index, values), ...);
    return execution.step() == SQLITE_DONE || fail();
}

template <typename steps_t>
bool journal_t::transaction(const steps_t& steps) {
    const size_t before = datagrams_;
    const int64_t first_id = next_id_;
    if (run("BEGIN IMMEDIATE") && steps() && run("COMMIT")) {
        failure_told_ = false;
        return true;
    }
    sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    datagrams_ = before;
    decoded_.erase(decoded_.lower_bound(first_id), decoded_.end());
    return false;
}

bool journal_t::fail() {
    if (!std::exchange(failure_told_, true)) {
        warn(fmt::format("cannot write the journal {}: {}; messages stay on the modem", file_.native(),
                         sqlite3_errmsg(connection_.get())));
    }
    return false;
}

std::filesystem::path journal_file(const std::filesystem::path& home) {
    return home / "journal.sqlite";
}

std::string journal_t::open(const std::filesystem::path& file, const bounds_t& bounds) {
    const std::lock_guard lock(mutex_);
    file_ = file;
    bounds_ = bounds;
    sqlite3* handle = nullptr;
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
    connection_.reset(handle);
    if (result != SQLITE_OK || !prepare()) {
        return fmt::format("cannot use the journal {}: {}", file.native(), sqlite3_errmsg(handle));
    }
    return {};
}

bool journal_t::prepare() {
    sqlite3_busy_timeout(connection_.get(), busy_timeout_ms);
    if (sqlite3_exec(connection_.get(), schema, nullptr, nullptr, nullptr) != SQLITE_OK) {
        return false;
    }
    execution_t query(statement("SELECT count(*), coalesce(max(id), 0) + 1 FROM datagrams"));
    if (query.step() != SQLITE_ROW) {
        return false;
    }
    datagrams_ = static_cast<size_t>(query.number(0));
    next_id_ = query.number(1);
    return true;
}

// Each is prepared once.
const base::sqlite::statement_t& journal_t::statement(std::string_view text) {
    const auto known = statements_.find(text);
    return known != statements_.end()
               ? known->second
               : statements_.emplace(text, base::sqlite::prepare(connection_.get(), text)).first->second;
}

bool journal_t::take(std::span<const arrival_t> arrivals, int64_t now) {
    const std::lock_guard lock(mutex_);
    return transaction([&] {
        for (const arrival_t& arrival : arrivals) {
            if (!take_one(arrival, now)) {
                return false;
            }
        }
        while (datagrams_ > bounds_.datagrams) {
            if (!drop_oldest()) {
                return false;
            }
        }
        return true;
    });
}

bool journal_t::take_one(const arrival_t& arrival, int64_t now) {
    const std::optional<place_t> place = place_of(arrival);
    if (!place) {
        return fail();
    }
    if (place->taken) {
        tell_copy(arrival, place->sender);
        return run("UPDATE finished SET at = ?2 WHERE identity = ?1", arrival.card.identity, now);
    }
    if (place->alias != place->concatenation.reference) {
        warn(fmt::format("a message from {} has the reference {} of one that is incomplete; the driver gets {}",
                         place->sender, place->concatenation.reference, place->alias));
    }
    const bool done = run("INSERT INTO datagrams VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12)", next_id_,
                          now, static_cast<int64_t>(arrival.technology), arrival.octets, arrival.card.identity,
                          place->sender, place->message, place->generation, static_cast<int64_t>(place->alias),
                          static_cast<int64_t>(place->concatenation.part),
                          static_cast<int64_t>(place->concatenation.parts), arrival.card.body);
    keep_decoded(next_id_, arrival.card);
    next_id_ += 1;
    datagrams_ += 1;
    return done;
}

// Once each: a message that the modem does not delete comes again at each listing.
void journal_t::tell_copy(const arrival_t& arrival, const std::string& sender) {
    constexpr size_t most_remembered = 1000;
    if (told_copies_.size() >= most_remembered) {
        told_copies_.clear();
    }
    if (told_copies_.insert(arrival.card.identity).second) {
        warn(fmt::format("a datagram from {} came again; it is not handed over twice", sender));
    }
}

// None when the file cannot be read.
std::optional<journal_t::place_t> journal_t::place_of(const arrival_t& arrival) {
    place_t place;
    place.sender = sender_of(arrival.card.message);
    execution_t known(
        statement("SELECT 1 FROM datagrams WHERE identity = ?1 UNION ALL SELECT 1 FROM finished WHERE identity = ?1"));
    known.bind(1, arrival.card.identity);
    const int found = known.step();
    place.taken = found == SQLITE_ROW;
    if (found != SQLITE_DONE) {
        return place.taken ? std::optional(place) : std::nullopt;
    }
    const std::optional<air::concatenation_t> concatenation = air::concatenation(arrival.card.header);
    if (!concatenation) {
        place.message = base::to_hex(arrival.card.identity);
        return place;
    }
    place.concatenation = *concatenation;
    place.message = fmt::format("{}/{}/{}/{}", arrival.card.sender, concatenation->width, concatenation->reference,
                                concatenation->parts);
    const bool placed = find_generation(arrival, place) && (place.taken || find_alias(place));
    return placed ? std::optional(place) : std::nullopt;
}

// The newest message of the text takes the datagram, unless it has such a part already, with another body: then a new
// message has begun.
bool journal_t::find_generation(const arrival_t& arrival, place_t& place) {
    execution_t same(
        statement("SELECT generation, body = ?3 FROM datagrams WHERE message = ?1 AND part = ?2 "
                  "ORDER BY generation DESC LIMIT 1"));
    same.bind(1, place.message);
    same.bind(2, int64_t{place.concatenation.part});
    same.bind(3, arrival.card.body);
    const int found = same.step();
    if (found == SQLITE_ROW) {
        place.taken = same.number(1) != 0;
        place.generation = same.number(0) + 1;
        return true;
    }
    execution_t newest(statement("SELECT coalesce(max(generation), 0) FROM datagrams WHERE message = ?1"));
    newest.bind(1, place.message);
    if (found != SQLITE_DONE || newest.step() != SQLITE_ROW) {
        return false;
    }
    place.generation = newest.number(0);
    return true;
}

// That of the message, if it has begun; else its own reference or, where the driver would mix it with another message,
// one far from those that the sender uses next.
bool journal_t::find_alias(place_t& place) {
    execution_t begun(statement("SELECT alias FROM datagrams WHERE message = ?1 AND generation = ?2 LIMIT 1"));
    begun.bind(1, place.message);
    begun.bind(2, place.generation);
    const int found = begun.step();
    if (found == SQLITE_ROW) {
        place.alias = static_cast<uint16_t>(begun.number(0));
        return true;
    }
    constexpr int step = 125;  // odd: 256 steps meet every low octet
    const uint16_t reference = place.concatenation.reference;
    for (int attempt = 0; attempt < 256; ++attempt) {
        place.alias = static_cast<uint16_t>((reference & 0xFF00) | ((reference + attempt * step) & 0xFF));
        if (!driver_knows(place)) {
            return found == SQLITE_DONE;
        }
    }
    place.alias = reference;
    return found == SQLITE_DONE;
}

bool journal_t::driver_knows(const place_t& place) {
    execution_t query(
        statement("SELECT 1 FROM datagrams WHERE sender = ?1 AND alias = ?2 AND parts = ?3 AND parts > 1 LIMIT 1"));
    query.bind(1, place.sender);
    query.bind(2, int64_t{place.alias});
    query.bind(3, int64_t{place.concatenation.parts});
    return query.step() == SQLITE_ROW ||
           dropped_.contains(name_for_driver(place.sender, place.alias, place.concatenation.parts));
}

// The whole message that the oldest datagram belongs to.
bool journal_t::drop_oldest() {
    std::string message;
    int64_t generation = 0;
    {
        execution_t oldest(statement("SELECT message, generation FROM datagrams ORDER BY id LIMIT 1"));
        if (oldest.step() != SQLITE_ROW) {
            return fail();
        }
        message = oldest.text(0);
        generation = oldest.number(1);
    }
    return drop(message, generation, fmt::format("the journal holds {} datagrams", bounds_.datagrams));
}

bool journal_t::drop(const std::string& message, int64_t generation, std::string_view reason) {
    std::string dropped;
    {
        execution_t query(
            statement("SELECT sender, count(*), parts, alias FROM datagrams WHERE message = ?1 AND generation = ?2"));
        query.bind(1, message);
        query.bind(2, generation);
        if (query.step() != SQLITE_ROW) {
            return fail();
        }
        dropped = fmt::format("dropped {} of the {} datagrams of a message from {}: {}", query.number(1),
                              query.number(2), query.text(0), reason);
        dropped_.insert(name_for_driver(query.text(0), static_cast<uint16_t>(query.number(3)),
                                        static_cast<unsigned>(query.number(2))));
    }
    if (!run("DELETE FROM datagrams WHERE message = ?1 AND generation = ?2", message, generation)) {
        return false;
    }
    datagrams_ -= static_cast<size_t>(sqlite3_changes(connection_.get()));
    warn(dropped);
    return true;
}

void journal_t::begin_session() {
    const std::lock_guard lock(mutex_);
    dropped_.clear();
}

std::vector<journal_t::entry_t> journal_t::next(int64_t after, size_t most) {
    const std::lock_guard lock(mutex_);
    execution_t query(
        statement("SELECT id, technology, octets, alias FROM datagrams WHERE id > ?1 ORDER BY id LIMIT ?2"));
    query.bind(1, after);
    query.bind(2, static_cast<int64_t>(most));
    std::vector<entry_t> entries;
    while (query.step() == SQLITE_ROW) {
        const int64_t id = query.number(0);
        std::optional<card_datagram_t> card = decoded(id, static_cast<technology_t>(query.number(1)), query.octets(2));
        if (!card) {
            warn(fmt::format("datagram {} of the journal is none; it is left alone", id));
            continue;
        }
        change_reference(*card, static_cast<uint16_t>(query.number(3)));
        entries.push_back({id, card->message});
    }
    return entries;
}

// So many as are handed over at once, and some more: what waits longer is read from the file again.
void journal_t::keep_decoded(int64_t id, const card_datagram_t& card) {
    constexpr size_t most = 64;
    if (decoded_.size() == most) {
        decoded_.erase(decoded_.begin());
    }
    decoded_.emplace(id, card);
}

std::optional<card_datagram_t> journal_t::decoded(int64_t id, technology_t technology, air::octets_view_t octets) {
    auto kept = decoded_.extract(id);
    return kept.empty() ? card_datagram_of(technology, octets) : std::optional(std::move(kept.mapped()));
}

void journal_t::handed_over(int64_t id, int64_t now) {
    const std::lock_guard lock(mutex_);
    if (!leave_after(id, now)) {
        not_left_.push_back(id);
    }
}

// The message of which this datagram was the last.
bool journal_t::leave_after(int64_t id, int64_t now) {
    std::string message;
    int64_t generation = 0;
    {
        execution_t query(
            statement("SELECT message, generation FROM datagrams AS last WHERE id = ?1 AND parts = (SELECT count(*) "
                      "FROM datagrams WHERE message = last.message AND generation = last.generation AND id <= ?1)"));
        query.bind(1, id);
        if (const int found = query.step(); found != SQLITE_ROW) {
            return found == SQLITE_DONE || fail();
        }
        message = query.text(0);
        generation = query.number(1);
    }
    return transaction([&] {
        const bool done = run("INSERT OR IGNORE INTO finished SELECT identity, ?3 FROM datagrams "
                              "WHERE message = ?1 AND generation = ?2",
                              message, generation, now) &&
                          run("DELETE FROM datagrams WHERE message = ?1 AND generation = ?2", message, generation);
        datagrams_ -= static_cast<size_t>(sqlite3_changes(connection_.get()));
        return done;
    });
}

void journal_t::expire(int64_t now) {
    const std::lock_guard lock(mutex_);
    std::erase_if(not_left_, [&](int64_t id) { return leave_after(id, now); });
    transaction([&] {
        std::vector<std::pair<std::string, int64_t>> old;
        {
            execution_t query(
                statement("SELECT message, generation FROM datagrams GROUP BY message, generation "
                          "HAVING count(*) < parts AND min(came) <= ?1 ORDER BY min(id)"));
            query.bind(1, now - bounds_.age);
            while (query.step() == SQLITE_ROW) {
                old.emplace_back(query.text(0), query.number(1));
            }
        }
        for (const auto& [message, generation] : old) {
            if (!drop(message, generation, fmt::format("incomplete for {} hours", bounds_.age / 3600))) {
                return false;
            }
        }
        return run("DELETE FROM finished WHERE at <= ?1", now - bounds_.age) &&
               run("DELETE FROM finished WHERE identity IN (SELECT identity FROM finished ORDER BY at DESC LIMIT -1 "
                   "OFFSET ?1)",
                   static_cast<int64_t>(bounds_.datagrams));
    });
}

bool journal_t::keep_text(size_t length, std::string_view pdu, int64_t now) {
    const std::lock_guard lock(mutex_);
    return transaction([&] {
        if (!run("INSERT INTO texts (came, length, pdu) VALUES (?1, ?2, ?3)", now, static_cast<int64_t>(length), pdu) ||
            !run("DELETE FROM texts WHERE id <= (SELECT max(id) FROM texts) - ?1",
                 static_cast<int64_t>(bounds_.datagrams))) {
            return false;
        }
        if (sqlite3_changes(connection_.get()) > 0) {
            warn(fmt::format("dropped a message that is no card: the journal holds {} of them", bounds_.datagrams));
        }
        return true;
    });
}

std::vector<journal_t::text_t> journal_t::texts() {
    const std::lock_guard lock(mutex_);
    execution_t query(statement("SELECT id, length, pdu FROM texts ORDER BY id"));
    std::vector<text_t> kept;
    while (query.step() == SQLITE_ROW) {
        kept.push_back({query.number(0), static_cast<size_t>(query.number(1)), query.text(2)});
    }
    return kept;
}

void journal_t::forget_text(int64_t id) {
    const std::lock_guard lock(mutex_);
    static_cast<void>(run("DELETE FROM texts WHERE id = ?1", id));
}

}  // namespace radio
