/// Every wait and every bound of the radio, and of the outbox before it, in one table.
///
/// A time runs from the moment its command is written; nothing that the modem says meanwhile lengthens it. Values are
/// read when they are needed, from any thread; `set_limit` is for the time before a modem is attached.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace radio {

enum class limit_t : uint8_t {
    first_answer,
    repeat,
    settling,
    silence,
    restart,
    setting,
    sim_there,
    sim_ready,
    sim_settled,
    query,
    storage,
    listing,
    listing_again,
    deleting_again,
    odd_again,
    reply_size,
    waiting_jobs,
    journal_age,
    journal_size,
    journal_again,
    close_datagrams,
    better_datagrams,
    apart_datagrams,
    storing_again,
    prompt,
    submission,
    unknown_submissions,
    link_kept,
    outbox_size,
    outbox_ahead,
    outbox_again,
    refusals,
    refusals_at_once,
    held_back,
    held_back_most,
    reopening,
    reopening_most,
    end,
};

struct limit_row_t {
    limit_t limit;
    std::string_view name;
    uint64_t initial;
    std::string_view unit;
    uint64_t least;  // what it may be set to; both 0 when it may not
    uint64_t most;
    std::string_view reason;

    [[nodiscard]] bool settable() const { return most != 0; }
};

/// A row each, in the order of limit_t.
std::span<const limit_row_t> limits();

/// The value that holds now, in the row's unit.
uint64_t value_of(limit_t limit);
/// The same, for sums with what may be negative: no range reaches so far.
inline int64_t signed_value_of(limit_t limit) {
    return static_cast<int64_t>(value_of(limit));
}
/// The same of a time in seconds.
uint64_t milliseconds(limit_t limit);
std::string_view name_of(limit_t limit);

/// Sets a value from its text. Returns an empty text, or why not: no such name, none that may be set, no number, out
/// of its range.
[[nodiscard]] std::string set_limit(std::string_view name, std::string_view value);
/// All as in the table again.
void reset_limits();

}  // namespace radio
