/// The journal's file: its tables, what is known of the datagrams in it, and its upkeep. An SQLite database for people
/// to open too.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/sqlite_file.h"
#include "radio/assembly.h"
#include "radio/ril_message.h"

namespace radio {

/// A datagram as the modem gave it, and what can be told of it.
struct arrival_t {
    technology_t technology;
    air::octets_t octets;
    card_datagram_t card;
};

namespace journal_file {

/// Where the journal of a phone lies.
std::filesystem::path path(const std::filesystem::path& home);

constexpr int64_t version = 2;
/// See base::sqlite::file_t.
bool make_tables(sqlite3* connection, int64_t found_version);

/// A row of a datagram.
struct row_t {
    int64_t id = 0;                          // rises in the order of arrival
    int64_t came = 0;                        // seconds since 1970, for people
    int64_t ran = 0;                         // seconds that the service had run by then
    std::optional<int64_t> finished;         // the same, when its message had been handed over
    std::string sender;                      // as a person reads it
    std::string message;                     // what may belong together has the same; empty for a message of its own
    std::optional<assembly::place_t> place;  // none: the driver refuses it
    int64_t stamp = 0;                       // see assembly::record_t
};
/// The row of a datagram that comes now.
row_t row_of(const arrival_t& arrival, int64_t id, int64_t came, int64_t ran);
/// Prepared by the caller, for `insert`.
extern const char* const insertion;
/// SQLITE_DONE or an error.
[[nodiscard]] int insert(const base::sqlite::statement_t& prepared, const arrival_t& arrival, const row_t& row);

/// Datagrams with one sender, reference and number of parts.
struct group_t {
    std::string sender;  // as a person reads it
    size_t parts = 0;
    assembly::records_t records;
    bool watched = false;  // for its age
};
/// By the key of their rows. Messages of one datagram are none.
using groups_t = std::map<std::string, group_t, std::less<>>;
/// A message of one datagram that waits to be handed over.
struct alone_t {
    int64_t id;
    std::string sender;
    bool refused;
};
/// All that wait, and what has gone and is still known.
struct contents_t {
    groups_t groups;
    std::vector<alone_t> alone;
    int64_t last_id = 0;
    size_t waiting = 0;  // datagrams
    size_t gone = 0;     // likewise
    int64_t ran = 0;     // seconds that the service had run when something was last written
};
/// In one pass, as there may be many. False when it cannot be read to its end; the connection tells why.
[[nodiscard]] bool read(sqlite3* connection, contents_t& contents);

}  // namespace journal_file
}  // namespace radio
