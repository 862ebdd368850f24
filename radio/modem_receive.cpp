// Incoming messages. Card datagrams go into the journal, are deleted from the modem, and are handed over from there;
// all others stay on the modem.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "radio/modem.h"
#include "radio/ril_message.h"
#include "radio/warning.h"

namespace radio {

namespace {

// Read already: an OK alone, or +CMS ERROR: 321, invalid memory index.
bool is_empty_place(const reply_t& reply) {
    constexpr final_result_t invalid_index = {final_result_t::kind_t::cms_error, 321};
    return reply.ok() ? reply.lines.empty() : reply.result == invalid_index;
}

}  // namespace

// What fails because the modem is away is not worth a line each: its loss is told, and all is done again when it is
// back.
void modem_t::warn_unless_lost(const std::string& text) {
    if (!lost()) {
        warn(text);
    }
}

bool modem_t::select_memory(const std::string& memory) {
    if (memories_.empty() || memory == selected_memory_) {
        return true;
    }
    const std::optional<std::string> name = quoted_text(memory);
    if (!name) {
        return false;
    }
    const reply_t reply =
        link_.exchange({.line = "AT+CPMS=" + *name, .limit = limit_t::storage, .prefixes = {"+CPMS:"}});
    if (!reply.ok()) {
        return false;
    }
    selected_memory_ = memory;
    constexpr int nearly_full = 80;  // per cent
    const std::optional<memory_level_t> level = memory_level(reply.first());
    if (level && level->total > 0 && level->used * 100 >= level->total * nearly_full) {
        warn(fmt::format("the message memory {} holds {} of {} messages; a full one receives nothing", memory,
                         level->used, level->total));
    }
    return true;
}

void modem_t::list_all() {
    next_listing_ = base::tick64() + milliseconds(limit_t::listing_again);
    journal_.expire(seconds_now());
    if (lost() || link_.ending()) {
        return;
    }
    give_texts_back();
    if (memories_.empty()) {
        list({});
    }
    for (const std::string& memory : memories_) {
        list(memory);
    }
}

void modem_t::list(const std::string& memory) {
    constexpr const char* all_messages = "AT+CMGL=4";
    if (!select_memory(memory)) {
        warn_unless_lost("cannot select the message memory " + memory);
        return;
    }
    const reply_t reply =
        link_.exchange({.line = all_messages, .limit = limit_t::listing, .prefixes = {"+CMGL:"}, .pdu_follows = true});
    if (!reply.ok()) {
        warn_unless_lost("cannot list the message memory " + memory);
    }
    std::vector<stored_datagram_t> datagrams;
    for (const modem_line_t& line : reply.lines) {
        if (const std::optional<stored_message_t> message = listed_message(line.text)) {
            consider({memory, message->index}, *message, line.pdu, datagrams);
        } else {
            warn("odd line in a list of messages: " + line.text);
        }
    }
    take(datagrams);
}

void modem_t::read_new(const location_t& location) {
    if (lost() || link_.ending()) {
        return;
    }
    if (!select_memory(location.memory)) {
        warn_unless_lost("cannot select the message memory " + location.memory + ", listing all messages");
        list_all();
        return;
    }
    const reply_t reply = link_.exchange({.line = fmt::format("AT+CMGR={}", location.index),
                                          .limit = limit_t::storage,
                                          .prefixes = {"+CMGR:"},
                                          .pdu_follows = true});
    const std::optional<stored_message_t> message = read_message(reply.first());
    std::vector<stored_datagram_t> datagrams;
    if (message) {
        consider(location, *message, reply.lines.front().pdu, datagrams);
    } else if (!is_empty_place(reply)) {
        next_listing_ = std::min(next_listing_, base::tick64() + milliseconds(limit_t::deleting_again));
        warn_unless_lost(
            fmt::format("cannot read message {} of memory {}; it is read later", location.index, location.memory));
    }
    take(datagrams);
}

void modem_t::consider(const location_t& location, const stored_message_t& message, const std::string& pdu,
                       std::vector<stored_datagram_t>& datagrams) const {
    if (!message.received) {
        return;
    }
    if (std::optional<arrival_t> arrival = arrival_of(pdu, message.length)) {
        datagrams.push_back({location, std::move(*arrival)});
    }
}

// None for anything that is no card datagram.
std::optional<arrival_t> modem_t::arrival_of(const std::string& pdu, size_t length) const {
    std::optional<air::octets_t> octets = tpdu_of_line(pdu, length);
    std::optional<card_datagram_t> card = octets ? card_datagram_of(technology_, *octets) : std::nullopt;
    if (!card) {
        return std::nullopt;
    }
    return arrival_t{technology_, std::move(*octets), std::move(*card)};
}

// The modem forgets what the journal has, and nothing else.
void modem_t::take(const std::vector<stored_datagram_t>& datagrams) {
    std::vector<arrival_t> arrivals;
    arrivals.reserve(datagrams.size());
    for (const stored_datagram_t& datagram : datagrams) {
        arrivals.push_back(datagram.arrival);
    }
    if (arrivals.empty() || !journal_.take(arrivals, seconds_now())) {
        return;
    }
    hand_over_next();
    for (const stored_datagram_t& datagram : datagrams) {
        remove(datagram.location);
    }
}

// What stays is found again by the next listing, which the journal then knows.
void modem_t::remove(const location_t& location) {
    const bool removed =
        select_memory(location.memory) &&
        link_.exchange({.line = fmt::format("AT+CMGD={}", location.index), .limit = limit_t::storage}).ok();
    if (removed) {
        undeleted_.erase(location);
    } else if (undeleted_.insert(location).second) {
        next_listing_ = std::min(next_listing_, base::tick64() + milliseconds(limit_t::deleting_again));
        warn_unless_lost(fmt::format("cannot delete message {} of memory {}; it is in the journal, and deleted later",
                                     location.index, location.memory));
    }
}

void modem_t::begin_receiving(session_pointer_t session) {
    receiver_ = session && (session->classes & RIL_NCLASS_MESSAGE) ? std::move(session) : nullptr;
    handed_over_ = 0;
    with_driver_ = 0;
    journal_.begin_session();
    hand_over_next();
}

// So many at a time, however many wait.
void modem_t::hand_over_next() {
    constexpr size_t most_with_driver = 32;
    if (!receiver_ || with_driver_ >= most_with_driver) {
        return;
    }
    for (const journal_t::entry_t& entry : journal_.next(handed_over_, most_with_driver - with_driver_)) {
        handed_over_ = entry.id;
        std::optional<card_datagram_t> card = card_datagram_of(entry.technology, entry.octets);
        if (!card) {
            warn(fmt::format("datagram {} of the journal is none; it is left alone", entry.id));
            continue;
        }
        change_reference(*card, entry.reference);
        with_driver_ += 1;
        callbacks_.message(receiver_, card->message, [this, session = receiver_, id = entry.id](bool handed_over) {
            if (handed_over) {
                journal_.handed_over(id, seconds_now());
            }
            post([this, session] { make_room(session); });
        });
    }
}

void modem_t::make_room(const session_pointer_t& session) {
    if (session == receiver_) {
        with_driver_ -= 1;
        hand_over_next();
    }
}

// Direct delivery: everything is acknowledged once it is safe, also what cannot be decoded, or the modem would deliver
// nothing more. A header line whose PDU got lost on the line is not. Messages that are not ours go where they would
// have lain without us; writing them there may take longer than the network waits.
void modem_t::take_delivery(const modem_line_t& line) {
    if (line.pdu.empty()) {
        warn("a delivered message came without its PDU, the network is to repeat it: " + line.text);
        acknowledge(false);
        return;
    }
    const size_t length = delivered_length(line.text).value_or(0);
    if (const std::optional<arrival_t> arrival = arrival_of(line.pdu, length)) {
        acknowledge(journal_.take({&*arrival, 1}, seconds_now()));
        hand_over_next();
    } else {
        acknowledge(journal_.keep_text(length, line.pdu, seconds_now()));
        give_texts_back();
    }
}

// A modem that refuses one is not asked again before the next listing.
void modem_t::give_texts_back() {
    for (const journal_t::text_t& text : journal_.texts()) {
        if (!put_on_modem(text.length, text.pdu)) {
            return;
        }
        journal_.forget_text(text.id);
    }
}

// Write message to memory, 3GPP TS 27.005 4.4: as received, unread.
bool modem_t::put_on_modem(size_t length, const std::string& pdu) {
    const command_t command = {
        .line = fmt::format("AT+CMGW={},0", length), .limit = limit_t::storage, .prefixes = {"+CMGW:"}, .entry = pdu};
    const bool put = link_.exchange(command).ok();
    if (!put && !std::exchange(refused_text_told_, true)) {
        warn_unless_lost("the modem does not take back a message that is no card; such are kept in the journal");
    }
    refused_text_told_ = !put;
    return put;
}

// Without an acknowledgement, or with a negative one (2), the network keeps the message (3GPP TS 27.005 4.7).
void modem_t::acknowledge(bool safe) {
    if (acknowledges_ && !link_.exchange({.line = safe ? "AT+CNMA" : "AT+CNMA=2", .limit = limit_t::storage}).ok() &&
        safe) {
        warn_unless_lost("the modem refused the acknowledgement of a delivered message");
    }
}

// Wall-clock time, which the journal outlives a process with; moved by tests with the clock that all waits run on.
int64_t modem_t::seconds_now() const {
    return began_at_ + static_cast<int64_t>((base::tick64() - began_at_tick_) / 1000);
}

}  // namespace radio
