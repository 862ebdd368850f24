/// The outbox's file: its tables, and a message as a row of them. An SQLite database for people to open too.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "base/sqlite_file.h"

/// What waits, is with the driver, or is over. The numbers are those of the file.
enum class outbox_state_t : uint8_t {
    waiting = 0,
    sending = 1,
    cancelling = 2,  // the driver still has datagrams of it, which go no more
    sent = 3,
    cancelled = 4,
    set_aside = 5,
};
bool is_over(outbox_state_t state);
/// As JSON and people have it: "set aside".
const char* words_of(outbox_state_t state);

/// Why a message did not go.
struct reason_t {
    std::string text;  // empty for none
    std::string advice{};
};

/// Why one that was leased goes no more: the lease was not renewed, or was not there any more after a start.
inline constexpr const char* lease_ended = "its lease ended: who handed it in did not renew it";
inline constexpr const char* lease_lost = "its lease ended with the service";

/// A card for one phone. Times are in seconds since 1970.
struct outbox_message_t {
    int64_t id = 0;  // rises, and is never given again
    outbox_state_t state = outbox_state_t::waiting;
    bool held = false;     // with its number
    std::string number;    // digits, "+" before an international one
    std::string file;      // its name, for people
    std::string contacts;  // a JSON array
    bool is_utf8 = true;
    bool long_reference = false;
    int64_t size = 0;  // octets
    int64_t datagrams = 0;
    int64_t sent = 0;  // of them, when it is over
    int64_t handed_in = 0;
    int64_t expires = 0;  // 0 for never
    int64_t changed = 0;
    int64_t refusals = 0;
    reason_t reason;      // of the last refusal, or why it was set aside or called back
    std::string token;    // of who handed it in, no other has it; empty for none
    bool leased = false;  // goes only as long as who handed it in renews its lease
    std::string octets;   // where they are asked for; gone from the file when the message is sent or cancelled
};

namespace outbox_file {

std::filesystem::path path(const std::filesystem::path& home);

constexpr int64_t version = 2;  // 1 knew no leases
/// See base::sqlite::file_t.
bool make_tables(sqlite3* connection, int64_t found_version);

/// From now on the table `totals` has, for each state but sent and cancelled, and `held` or not, how many messages
/// there are, and datagrams of them. Of the connection that writes, which sees no other's changes there.
bool keep_totals(sqlite3* connection);

/// "SELECT " and the columns of a row, without the octets, " FROM messages " follows.
extern const char* const columns;
/// The row of an execution that begins with these columns.
outbox_message_t row(const base::sqlite::execution_t& query);

/// The message; none when there is none, or it cannot be read.
std::optional<outbox_message_t> read(base::sqlite::file_t& file, int64_t id);
/// Empty when they cannot be read.
std::string octets_of(base::sqlite::file_t& file, int64_t id);
/// The id, or none, and told, when it fails.
std::optional<int64_t> insert(base::sqlite::file_t& file, const outbox_message_t& message);
/// State, sent, refusals, reason, the lease and the time of the change. The octets go with a message that is sent or
/// cancelled.
[[nodiscard]] bool update(base::sqlite::file_t& file, const outbox_message_t& message);

}  // namespace outbox_file
