// Incoming messages. Only card datagrams are handed over and deleted, a message after its callback has returned; all
// others stay where they are.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "radio/modem.h"
#include "radio/ril_message.h"
#include "radio/warning.h"

namespace radio {

// What fails because the modem is away is not worth a line each: its loss is told, and all is done again when it is
// back.
void modem_t::warn_unless_lost(const std::string& text) {
    if (!lost()) {
        warn(text);
    }
}

// Messages stay on the modem while nobody wants them.
session_pointer_t modem_t::receiver() {
    session_pointer_t open = session();
    return open && (open->classes & RIL_NCLASS_MESSAGE) ? open : nullptr;
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
    next_listing_ = platform::tick64() + milliseconds(limit_t::listing_again);
    if (!receiver() || lost() || link_.ending()) {
        return;
    }
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
    for (const modem_line_t& line : reply.lines) {
        if (const std::optional<stored_message_t> message = listed_message(line.text)) {
            consider({memory, message->index}, *message, line.pdu);
        } else {
            warn("odd line in a list of messages: " + line.text);
        }
    }
}

void modem_t::read_new(const location_t& location) {
    if (!receiver() || lost() || link_.ending()) {
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
    if (message) {
        consider(location, *message, reply.lines.front().pdu);
    } else if (!reply.ok() || !reply.lines.empty()) {  // an OK alone is an empty place: read already
        warn_unless_lost(fmt::format("cannot read message {} of memory {}", location.index, location.memory));
    }
}

void modem_t::consider(const location_t& location, const stored_message_t& message, const std::string& pdu) {
    const auto known = taken_.find(location);
    if (known != taken_.end() && known->second.handed_over && known->second.pdu == pdu) {
        remove(location);
        return;
    }
    const session_pointer_t session = receiver();
    if (!session || !message.received || taken_already(location, pdu)) {
        return;
    }
    const std::optional<tpdu::octets_t> octets = tpdu_of_line(pdu, message.length);
    const std::optional<card_datagram_t> datagram = octets ? card_datagram_of(technology_, *octets) : std::nullopt;
    if (!datagram) {
        return;
    }
    taken_[location] = {pdu, false};
    callbacks_.message(session, datagram->message, [this, location](bool handed_over) {
        post([this, location, handed_over] { finish(location, handed_over); });
    });
}

// In hand at this moment, under this place or, where two memories show the same messages, under another.
bool modem_t::taken_already(const location_t& location, const std::string& pdu) const {
    return std::ranges::any_of(taken_, [&](const auto& entry) {
        return !entry.second.handed_over && (entry.first == location || entry.second.pdu == pdu);
    });
}

void modem_t::finish(const location_t& location, bool handed_over) {
    if (!handed_over) {
        taken_.erase(location);
        return;
    }
    taken_[location].handed_over = true;
    remove(location);
}

// A delete that fails is tried again at each listing; the message is not handed over again.
void modem_t::remove(const location_t& location) {
    const bool removed =
        select_memory(location.memory) &&
        link_.exchange({.line = fmt::format("AT+CMGD={}", location.index), .limit = limit_t::storage}).ok();
    if (removed) {
        taken_.erase(location);
    } else {
        warn_unless_lost(fmt::format("cannot delete message {} of memory {}; it has been handed over", location.index,
                                     location.memory));
    }
}

// Direct delivery: everything is acknowledged, also what cannot be decoded, or the modem would deliver nothing more. A
// card datagram is acknowledged when the driver has it.
void modem_t::take_delivery(const modem_line_t& line) {
    const std::optional<size_t> length = delivered_length(line.text);
    const std::optional<tpdu::octets_t> octets = length ? tpdu_of_line(line.pdu, *length) : std::nullopt;
    if (!octets) {
        warn("a delivered message cannot be decoded: " + line.text + ' ' + line.pdu);
    }
    const std::optional<card_datagram_t> datagram = octets ? card_datagram_of(technology_, *octets) : std::nullopt;
    if (datagram) {
        hand_over_direct(*datagram, false);
    } else {
        acknowledge();
    }
}

void modem_t::hand_over_direct(const card_datagram_t& datagram, bool acknowledged) {
    const auto done = [this, datagram, acknowledged](bool handed_over) {
        if (!handed_over) {
            kept_.push_back(datagram);
        }
        if (!acknowledged) {
            acknowledge();
        }
    };
    const session_pointer_t session = receiver();
    if (!session) {
        done(false);
        return;
    }
    callbacks_.message(session, datagram.message,
                       [this, done](bool handed_over) { post([done, handed_over] { done(handed_over); }); });
}

void modem_t::hand_over_kept() {
    if (!receiver()) {
        return;
    }
    for (const card_datagram_t& datagram : std::exchange(kept_, {})) {
        hand_over_direct(datagram, true);
    }
}

void modem_t::acknowledge() {
    if (acknowledges_ && !link_.exchange({.line = "AT+CNMA", .limit = limit_t::storage}).ok()) {
        warn_unless_lost("the modem refused the acknowledgement of a delivered message");
    }
}

}  // namespace radio
