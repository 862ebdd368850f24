#include "radio/limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>

namespace radio {

namespace {

// docs/radio.md shows this table.
constexpr limit_row_t rows[] = {
    {limit_t::first_answer, "first-answer", 5, "s", 1, 300, "a modem that is there answers AT within a second"},
    {limit_t::repeat, "repeat", 1, "s", 0, 0, "a modem that was just switched on loses octets"},
    {limit_t::settling, "settling", 1, "s", 0, 0, "late answers to earlier commands have come by then"},
    {limit_t::silence, "silence", 60, "s", 5, 600, "a modem that is busy with the network answers within that"},
    {limit_t::restart, "restart", 2, "s", 0, 0, "no modem restarts in less"},
    {limit_t::setting, "setting", 10, "s", 2, 300, "settings may touch the SIM, which is busy after a start"},
    {limit_t::sim_there, "sim-there", 10, "s", 0, 0, "a modem that was just switched on has not found its SIM yet"},
    {limit_t::sim_ready, "sim-ready", 60, "s", 1, 600, "a SIM with many files is read for half a minute"},
    {limit_t::sim_settled, "sim-settled", 10, "s", 0, 0, "a SIM tells late that it has taken its PIN"},
    {limit_t::query, "query", 10, "s", 0, 0, "registration is known to the modem; it asks nobody"},
    {limit_t::storage, "storage", 20, "s", 5, 300, "reading or deleting one message on a slow SIM"},
    {limit_t::listing, "listing", 60, "s", 10, 600, "a full SIM, read message by message"},
    {limit_t::listing_again, "listing-again", 300, "s", 10, 86'400, "announcements get lost; a delete may fail"},
    {limit_t::deleting_again, "deleting-again", 30, "s", 0, 0, "a SIM that refused is busy, or the place is none"},
    {limit_t::odd_again, "odd-again", 30, "s", 0, 0, "a modem that names no places may do so each second"},
    {limit_t::reply_size, "reply-size", 8'000'000, "octets", 0, 0, "a listing of twenty thousand messages"},
    {limit_t::waiting_jobs, "waiting-jobs", 1'000, "jobs", 0, 0, "more announcements wait than a SIM has places"},
    {limit_t::journal_age, "journal-age", 7, "days", 1, 365, "the network keeps the missing datagrams no longer"},
    {limit_t::journal_size, "journal-size", 10'000, "datagrams", 255, 1'000'000, "40 of the largest cards"},
    {limit_t::journal_again, "journal-again", 5, "s", 0, 0, "another program's lock, or a full disk"},
    {limit_t::close_datagrams, "close-datagrams", 30, "s", 0, 0,
     "a datagram is on its way to the network for 3 to 10 s"},
    {limit_t::better_datagrams, "better-datagrams", 120, "s", 1, 86'400, "a datagram that the network delivers late"},
    {limit_t::apart_datagrams, "apart-datagrams", 86'400, "s", 60, 604'800, "a sender who pauses longer begins anew"},
    {limit_t::storing_again, "storing-again", 30, "s", 1, 3'600, "somebody makes room"},
    {limit_t::prompt, "prompt", 20, "s", 5, 300, "the modem only has to switch to text entry"},
    {limit_t::submission, "submission", 180, "s", 10, 3'600, "makers name 60 to 150 s"},
    {limit_t::unknown_submissions, "unknown-submissions", 32, "datagrams", 0, 0,
     "more than the driver ever has in flight"},
    {limit_t::link_kept, "link-kept", 1, "s", 0, 0, "AT+CMMS=1 lasts for 1 to 5 s without a submission"},
    {limit_t::outbox_size, "outbox-size", 10'000, "cards", 1, 1'000'000, "a disk has an end; a week of one modem"},
    {limit_t::outbox_ahead, "outbox-ahead", 32, "datagrams", 1, 1'000, "the next card is there before the modem waits"},
    {limit_t::outbox_again, "outbox-again", 5, "s", 0, 0, "the modem is away, or the disk is full"},
    {limit_t::refusals, "refusals", 20, "refusals", 1, 1'000, "a card that goes after fifteen hours of them is rare"},
    {limit_t::refusals_at_once, "refusals-at-once", 3, "refusals", 0, 0, "each holds up all others for 5 s"},
    {limit_t::held_back, "held-back", 60, "s", 1, 3'600, "a receiver makes room; doubled each time"},
    {limit_t::held_back_most, "held-back-most", 3'600, "s", 1, 86'400,
     "who looks for his card in vain waits no longer"},
    {limit_t::reopening, "reopening", 1, "s", 0, 0, "a USB modem that restarts is away for some seconds"},
    {limit_t::reopening_most, "reopening-most", 30, "s", 0, 0, "a person who plugs it in waits for it"},
    {limit_t::end, "end", 2, "s", 0, 0, "what was handed over is deleted before the tty is freed"},
};

constexpr bool in_order() {
    for (size_t i = 0; i < std::size(rows); ++i) {
        if (static_cast<size_t>(rows[i].limit) != i) {
            return false;
        }
    }
    return true;
}
static_assert(in_order());

// 0 for the initial value: no limit may be 0.
std::array<std::atomic<uint64_t>, std::size(rows)> set_values;

const limit_row_t& row_of(limit_t limit) {
    return rows[static_cast<size_t>(limit)];
}

}  // namespace

std::span<const limit_row_t> limits() {
    return rows;
}

uint64_t value_of(limit_t limit) {
    const uint64_t set = set_values[static_cast<size_t>(limit)];
    return set != 0 ? set : row_of(limit).initial;
}

uint64_t milliseconds(limit_t limit) {
    return value_of(limit) * 1000;
}

std::string_view name_of(limit_t limit) {
    return row_of(limit).name;
}

std::string set_limit(std::string_view name, std::string_view text) {
    const limit_row_t* const row = std::ranges::find(rows, name, &limit_row_t::name);
    if (row == std::end(rows)) {
        return fmt::format("there is no limit '{}'", name);
    }
    if (!row->settable()) {
        return fmt::format("the limit '{}' cannot be set", name);
    }
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < row->least || value > row->most) {
        return fmt::format("the limit '{}' takes {} to {} {}, not '{}'", name, row->least, row->most, row->unit, text);
    }
    set_values[static_cast<size_t>(row->limit)] = value;
    return {};
}

void reset_limits() {
    for (std::atomic<uint64_t>& value : set_values) {
        value = 0;
    }
}

}  // namespace radio
