#include "service/in_flight.h"

#include <algorithm>
#include <string_view>

#include "base/clock.h"
#include "radio/limits.h"
#include "radio/result_codes.h"

using radio::limit_t;
using radio::outgoing_t;
using radio::retry_t;
using radio::signed_value_of;
using radio::submission_outcome_t;

namespace {

std::string_view text_of(const air::octets_t& octets) {
    return {reinterpret_cast<const char*>(octets.data()), octets.size()};  // NOLINT: octets as octets
}

}  // namespace

std::optional<ending_t> ending_after(const submission_outcome_t& outcome, int64_t refusals, int64_t at_once) {
    using enum ending_t::kind_t;
    const bool is_refused = outcome.kind == submission_outcome_t::kind_t::refused;
    const reason_t reason =
        is_refused ? reason_t{words_of(outcome.result), std::string(advice_on(outcome.result))}
                   : reason_t{"the modem does not tell what becomes of it", "look after the modem: zpd doctor"};
    if (refusals > signed_value_of(limit_t::refusals)) {
        return ending_t{refused, reason};
    }
    switch (is_refused ? retry_after(outcome.result) : retry_t::with_modem) {
        case retry_t::never:
            return ending_t{refused, reason};
        case retry_t::later:
            return ending_t{later, reason};
        case retry_t::now:
            return at_once >= signed_value_of(limit_t::refusals_at_once) ? std::optional(ending_t{later, reason})
                                                                         : std::nullopt;
        default:
            return std::nullopt;
    }
}

void in_flight_t::begin(const outbox_message_t& message) {
    const std::lock_guard lock(mutex_);
    const bool is_single = message.datagrams == 1;
    entry_t& entry = entries_.emplace_back();
    entry.state.id = message.id;
    entry.state.number = message.number;
    entry.state.refusals = message.refusals;
    entry.state.expires = message.expires;
    entry.octets = message.octets;
    entry.width = is_single ? 0 : message.long_reference ? 2 : 1;
    entry.confirmed.resize(static_cast<size_t>(message.datagrams));
    outstanding_ += message.datagrams;
}

void in_flight_t::name(int64_t id, uint32_t driver_message) {
    const std::lock_guard lock(mutex_);
    if (entry_t* const entry = find(id)) {
        entry->state.driver_message = driver_message;
    }
}

void in_flight_t::settle(int64_t id) {
    const std::lock_guard lock(mutex_);
    if (entry_t* const entry = find(id)) {
        entry->state.settled = true;
    }
}

void in_flight_t::end(int64_t id) {
    const std::lock_guard lock(mutex_);
    if (const entry_t* const entry = find(id)) {
        given_up_ -= entry->state.ending ? 1 : 0;
        outstanding_ -= entry->state.ending ? 0 : entry->left();
        entries_.remove_if([&](const entry_t& one) { return &one == entry; });
    }
}

bool in_flight_t::give_up(int64_t id, const ending_t& ending) {
    const std::lock_guard lock(mutex_);
    entry_t* const entry = find(id);
    if (entry == nullptr || entry->state.complete || entry->state.settled) {
        return false;
    }
    give_up(*entry, ending);
    return true;
}

bool in_flight_t::has(int64_t id) {
    const std::lock_guard lock(mutex_);
    return find(id) != nullptr;
}

void in_flight_t::give_up(entry_t& entry, const ending_t& ending) {
    given_up_ += entry.state.ending ? 0 : 1;
    outstanding_ -= entry.state.ending ? 0 : entry.left();
    entry.state.ending = ending;
}

in_flight_t::entry_t* in_flight_t::find(int64_t id) {
    const auto entry = std::ranges::find(entries_, id, [](const entry_t& one) { return one.state.id; });
    return entry == entries_.end() ? nullptr : &*entry;
}

std::vector<in_flight_t::state_t> in_flight_t::look() {
    const std::lock_guard lock(mutex_);
    std::vector<state_t> states;
    for (entry_t& entry : entries_) {
        states.push_back(entry.state);
        entry.state.is_new = false;
    }
    return states;
}

int64_t in_flight_t::outstanding() const {
    const std::lock_guard lock(mutex_);
    return outstanding_;
}

bool in_flight_t::gives_up_equal(const outbox_message_t& message) const {
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(entries_, [&](const entry_t& entry) {
        return entry.state.ending && entry.state.number == message.number && entry.octets == message.octets;
    });
}

std::optional<double> in_flight_t::pace() const {
    const std::lock_guard lock(mutex_);
    return pace_ > 0 ? std::optional(pace_) : std::nullopt;
}

// The reference of a message is the end of the driver's id, which is not known before the driver has answered: until
// then what it carries tells.
bool in_flight_t::is_of(const entry_t& entry, const outgoing_t& datagram) {
    if (entry.state.number != datagram.number || entry.width != datagram.place.width ||
        entry.confirmed.size() != datagram.place.parts) {
        return false;
    }
    if (entry.width == 0) {
        return entry.octets == text_of(datagram.body);
    }
    if (!entry.state.driver_message) {
        return entry.octets.find(text_of(datagram.body)) != std::string::npos;
    }
    const uint32_t mask = entry.width == 1 ? UINT8_MAX : UINT16_MAX;
    return (*entry.state.driver_message & mask) == datagram.place.reference;
}

// Of equal ones of one datagram the first: the driver takes them in order.
in_flight_t::entry_t* in_flight_t::find(const outgoing_t& datagram) {
    const auto entry =
        std::ranges::find_if(entries_, [&](const entry_t& one) { return !one.state.complete && is_of(one, datagram); });
    return entry == entries_.end() ? nullptr : &*entry;
}

void in_flight_t::submitted(const outgoing_t& datagram, const submission_outcome_t& outcome) {
    using enum submission_outcome_t::kind_t;
    std::unique_lock lock(mutex_);
    if (outcome.kind == sent) {
        note_pace();
    }
    entry_t* const entry = find(datagram);
    if (entry == nullptr || outcome.kind == not_out) {
        return;
    }
    bool wakes = false;
    if (outcome.kind == sent) {
        wakes = confirm(*entry, datagram);
    } else if (outcome.kind != refused || retry_after(outcome.result) != retry_t::with_modem) {
        entry->state.refusals += 1;
        if (const auto ending = ending_after(outcome, entry->state.refusals, entry->at_once++);
            ending && !entry->state.ending) {
            give_up(*entry, *ending);
        }
        wakes = true;
    }
    lock.unlock();
    if (wakes) {
        wake_();
    }
}

// Whether the feeder has something to do: a message to end, a number to let go, or room for the next message.
bool in_flight_t::confirm(entry_t& entry, const outgoing_t& datagram) {
    const size_t index = datagram.place.part - 1U;
    if (index >= entry.confirmed.size() || entry.confirmed[index]) {
        return false;
    }
    entry.confirmed[index] = true;
    entry.state.sent += 1;
    entry.at_once = 0;
    entry.state.is_new = true;
    outstanding_ -= entry.state.ending ? 0 : 1;
    entry.state.complete = entry.state.sent == static_cast<int64_t>(entry.confirmed.size());
    return entry.state.complete || entry.state.sent == 1 || outstanding_ == signed_value_of(limit_t::outbox_ahead) / 2;
}

bool in_flight_t::is_given_up(const outgoing_t& datagram) const {
    const std::lock_guard lock(mutex_);
    return given_up_ != 0 && std::ranges::any_of(entries_, [&](const entry_t& entry) {
               return entry.state.ending && is_of(entry, datagram);
           });
}

// A pause between two cards tells nothing of how fast they go.
void in_flight_t::note_pace() {
    constexpr double second = 1000;
    constexpr double weight = 0.1;
    const uint64_t now = base::tick64();
    if (last_sent_ != 0 && outstanding_ > 0) {
        const double taken = static_cast<double>(now - last_sent_) / second;
        pace_ = pace_ > 0 ? pace_ + weight * (taken - pace_) : taken;
    }
    last_sent_ = now;
}
