#include "radio/mailbox.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/clock.h"
#include "base/hex.h"
#include "platform/linux/home.h"
#include "radio/limits.h"
#include "radio/warning.h"

namespace radio {

namespace {

// Read already: an OK alone, or +CMS ERROR: 321, invalid memory index.
bool is_empty_place(const reply_t& reply) {
    const final_result_t invalid_index = {final_result_t::kind_t::cms_error, 321};
    return reply.ok() ? reply.lines.empty() : reply.result == invalid_index;
}

}  // namespace

std::optional<memories_t> ask_memories(inquiry_t& inquiry) {
    const std::optional<reply_t> offered = inquiry.ask("AT+CPMS=?", "+CPMS:");
    const std::optional<reply_t> in_use = offered ? inquiry.ask("AT+CPMS?", "+CPMS:") : std::nullopt;
    if (!in_use) {
        return std::nullopt;
    }
    memories_t memories{offered->first(), memories_in_use(in_use->first()), receiving_memory(in_use->first()), {}};
    memories.to_read = memories_to_read(readable_memories(memories.offered), memories.receiving);
    return memories;
}

fullness_t fullness_of(const memory_level_t& level) {
    if (level.total > 0 && level.used >= level.total) {
        return fullness_t::full;
    }
    return level.total > 0 && level.used * 5 >= level.total * 4 ? fullness_t::nearly_full : fullness_t::some_room;
}

mailbox_t::mailbox_t(modem_link_t& link, callbacks_t& callbacks, job_queue_t& jobs, announcements_t& announcements,
                     const registration_watch_t& registration, modem_board_t& board)
    : link_(link),
      jobs_(jobs),
      announcements_(announcements),
      registration_(registration),
      board_(board),
      handover_(journal_, callbacks, jobs) {}

std::string mailbox_t::open() {
    constexpr int64_t seconds_a_day = 86'400;
    const auto seconds = [](limit_t limit) { return static_cast<int64_t>(value_of(limit)); };
    return journal_.open(journal_file::path(platform::home()), {.age = seconds(limit_t::journal_age) * seconds_a_day,
                                                                .datagrams = value_of(limit_t::journal_size),
                                                                .rules = {.close = seconds(limit_t::close_datagrams),
                                                                          .wait = seconds(limit_t::better_datagrams),
                                                                          .apart = seconds(limit_t::apart_datagrams)}});
}

card_counts_t mailbox_t::card_counts() {
    const journal_t::counts_t counts = journal_.counts();
    return {handover_.stored(), handover_.dropped(), counts.whole, counts.incomplete, counts.given_up};
}

void mailbox_t::go_on() {
    journal_.look_again();
    if (base::tick64() >= handover_.next_try()) {
        handover_.try_again();
    }
    handover_.go_on();
}

uint64_t mailbox_t::next_step() {
    return std::min(journal_.next_look(), handover_.next_try());
}

void mailbox_t::forget() {
    memories_.clear();
    selected_.clear();
}

bool mailbox_t::set_up(setup_inquiry_t& inquiry) {
    std::optional<memories_t> memories = ask_memories(inquiry);
    if (memories) {
        note(*memories);
        memories_ = std::move(memories->to_read);
    }
    return memories.has_value();
}

void mailbox_t::note(const memories_t& memories) const {
    board_.change([&](modem_state_t& now) {
        now.receiving_memory = memories.receiving;
        now.memories.clear();
        for (const std::string& name : memories.to_read) {
            const auto told = std::ranges::find(memories.in_use, name, &memory_use_t::name);
            if (told != memories.in_use.end()) {
                now.memories.push_back(*told);
            }
        }
    });
}

// What fails because the modem is away is not worth a line each: its loss is told, and all is done again when it is
// back.
void mailbox_t::warn_unless_lost(const std::string& text) const {
    if (!link_.lost() && !link_.restarted()) {
        warn(text);
    }
}

bool mailbox_t::select(const std::string& memory) {
    if (memories_.empty() || memory == selected_) {
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
    selected_ = memory;
    if (const std::optional<memory_level_t> level = memory_level(reply.first())) {
        board_.change([&](modem_state_t& now) { now.note_memory({memory, *level}); });
        tell_level(memory, *level);
    }
    return true;
}

// Once each, when it is reached.
void mailbox_t::tell_level(const std::string& memory, const memory_level_t& level) {
    const fullness_t now = fullness_of(level);
    const fullness_t before = std::exchange(told_levels_[memory], now);
    if (now > before) {
        warn(now == fullness_t::full
                 ? fmt::format("the message memory {} is full, with {} messages: it receives nothing more until some "
                               "are deleted",
                               memory, level.used)
                 : fmt::format("the message memory {} holds {} of {} messages; a full one receives nothing", memory,
                               level.used, level.total));
    }
}

// The network waits for an acknowledgement, and for nothing else.
void mailbox_t::deliver_first() {
    while (const job_queue_t::job_t delivery = jobs_.next_urgent()) {
        delivery();
    }
}

void mailbox_t::list_all() {
    listed_at_ = base::tick64();
    next_listing_ = listed_at_ + milliseconds(limit_t::listing_again);
    journal_.expire();
    texts_refused_ = false;
    if (link_.lost() || link_.ending()) {
        return;
    }
    give_texts_back();
    if (memories_.empty()) {
        list({});
    }
    for (const std::string& memory : memories_) {
        deliver_first();
        list(memory);
    }
}

void mailbox_t::list_now() {
    next_listing_ = std::min(next_listing_, listed_at_ + milliseconds(limit_t::odd_again));
}

void mailbox_t::list(const std::string& memory) {
    constexpr const char* all_messages = "AT+CMGL=4";
    selected_.clear();  // the reply tells how full it is
    if (!select(memory)) {
        warn_unless_lost("cannot select the message memory " + memory);
        return;
    }
    const reply_t reply = link_.exchange(
        {.line = all_messages, .limit = limit_t::listing, .shape = reply_shape_t::pdus, .prefixes = {"+CMGL:"}});
    if (!reply.ok()) {
        warn_unless_lost("cannot list the message memory " + memory);
    }
    datagrams_t datagrams;
    for (const modem_line_t& line : reply.lines) {
        if (const std::optional<stored_message_t> message = listed_message(line.text)) {
            consider({memory, message->index}, *message, line.pdu, datagrams);
        } else {
            warn("odd line in a list of messages: " + line.text);
        }
    }
    take(datagrams);
}

void mailbox_t::announce(const std::string& line) {
    announced_.push_back(line);
    if (announced_.size() == 1) {
        jobs_.post([this] { read_announced(); });
    }
}

// Those that wait go to the disk together: it is as slow for one. Not more than a small memory holds, and not for long:
// others wait for the modem, and it for room.
void mailbox_t::read_announced() {
    constexpr size_t most = 20;
    constexpr uint64_t longest = 1000;
    const uint64_t until = base::tick64() + longest;
    datagrams_t datagrams;
    for (size_t count = 0; !announced_.empty() && count < most && base::tick64() < until; ++count) {
        deliver_first();
        const std::string line = std::move(announced_.front());
        announced_.pop_front();
        read_new(line, datagrams);
    }
    if (!announced_.empty()) {
        jobs_.post([this] { read_announced(); });
    }
    take(datagrams);
}

void mailbox_t::read_new(const std::string& line, datagrams_t& datagrams) {
    if (const std::optional<location_t> location = new_message(line)) {
        if (std::ranges::find(datagrams.locations, *location) == datagrams.locations.end()) {
            read(*location, datagrams);
        }
        return;
    }
    warn("odd announcement, listing all messages: " + line);
    list_now();
}

void mailbox_t::read(const location_t& location, datagrams_t& datagrams) {
    if (link_.lost() || link_.ending()) {
        return;
    }
    if (!select(location.memory)) {
        warn_unless_lost("cannot select the message memory " + location.memory + ", listing all messages");
        list_now();
        return;
    }
    const reply_t reply = link_.exchange({.line = fmt::format("AT+CMGR={}", location.index),
                                          .limit = limit_t::storage,
                                          .shape = reply_shape_t::pdus,
                                          .prefixes = {"+CMGR:"}});
    const std::optional<stored_message_t> message = read_message(reply.first());
    if (message) {
        count_in(location.memory, 1);
        consider(location, *message, reply.lines.front().pdu, datagrams);
    } else if (!is_empty_place(reply)) {
        look_again_in(limit_t::deleting_again);
        warn_unless_lost(
            fmt::format("cannot read message {} of memory {}; it is read later", location.index, location.memory));
    }
}

void mailbox_t::consider(const location_t& location, const stored_message_t& message, const std::string& pdu,
                         datagrams_t& datagrams) {
    if (!message.received) {
        return;
    }
    if (std::optional<arrival_t> arrival = arrival_of(pdu, message.length)) {
        datagrams.locations.push_back(location);
        datagrams.arrivals.push_back(std::move(*arrival));
    }
}

// None for anything that is no card datagram.
std::optional<arrival_t> mailbox_t::arrival_of(const std::string& pdu, size_t length) {
    const technology_t technology = registration_.technology();
    for (air::octets_t& octets : tpdus_of_line(pdu, length)) {
        if (std::optional<card_datagram_t> card = card_datagram_of(technology, octets)) {
            return arrival_t{technology, std::move(octets), std::move(*card)};
        }
    }
    tell_unreadable(pdu);
    return std::nullopt;
}

// What is addressed to us and makes no sense stays where it is, for somebody to look at: told once, however often it is
// listed. A line that was cut off may end in the middle of an octet.
void mailbox_t::tell_unreadable(const std::string& pdu) {
    constexpr size_t most_remembered = 1000;
    const std::string_view digits(pdu);
    const std::optional<air::octets_t> octets = base::from_hex(digits.substr(0, digits.size() / 2 * 2));
    if (!octets || !names_card_port(*octets)) {
        return;
    }
    if (told_.size() >= most_remembered) {
        told_.clear();
    }
    if (told_.insert(pdu).second) {
        warn("a message for the port of cards cannot be read and is left as it is: " + pdu);
    }
}

// The modem forgets what the journal has, and nothing else.
void mailbox_t::take(const datagrams_t& datagrams) {
    if (datagrams.arrivals.empty() || !keep(datagrams.arrivals)) {
        return;
    }
    for (const location_t& location : datagrams.locations) {
        deliver_first();
        remove(location);
    }
}

// What cannot be kept stays on the modem, and is listed again soon.
bool mailbox_t::keep(std::span<const arrival_t> arrivals) {
    if (!journal_.take(arrivals)) {
        look_again_in(limit_t::journal_again);
        return false;
    }
    handover_.go_on();
    return true;
}

// What stays is found again by the next listing, which the journal then knows.
void mailbox_t::remove(const location_t& location) {
    const bool removed =
        select(location.memory) &&
        link_.exchange({.line = fmt::format("AT+CMGD={}", location.index), .limit = limit_t::storage}).ok();
    if (removed) {
        count_in(location.memory, -1);
        undeleted_.erase(location);
    } else if (undeleted_.insert(location).second) {
        look_again_in(limit_t::deleting_again);
        warn_unless_lost(fmt::format("cannot delete message {} of memory {}; it is in the journal, and deleted later",
                                     location.index, location.memory));
    }
}

void mailbox_t::count_in(const std::string& memory, int more) const {
    board_.change([&](modem_state_t& now) { now.count_messages(memory, more); });
}

void mailbox_t::look_again_in(limit_t limit) {
    next_listing_ = std::min(next_listing_, base::tick64() + milliseconds(limit));
}

// Direct delivery: everything is acknowledged once it is safe, also what cannot be decoded, or the modem would deliver
// nothing more. A header line whose PDU got lost on the line is not. Messages that are not ours go where they would
// have lain without us; writing them there may take longer than the network waits.
void mailbox_t::take_delivery(const modem_line_t& line) {
    if (line.pdu.empty()) {
        warn("a delivered message came without its PDU, the network is to repeat it: " + line.text);
        acknowledge(false);
        return;
    }
    const size_t length = delivered_length(line.text).value_or(0);
    if (const std::optional<arrival_t> arrival = arrival_of(line.pdu, length)) {
        acknowledge(keep({&*arrival, 1}));
    } else {
        acknowledge(journal_.keep_text(length, line.pdu));
        jobs_.post([this] { give_texts_back(); });
    }
}

// A modem that refuses one is not asked again before the next listing.
void mailbox_t::give_texts_back() {
    while (!texts_refused_ && !link_.lost() && !link_.ending()) {
        deliver_first();
        const std::optional<journal_t::text_t> text = journal_.first_text();
        if (!text) {
            return;
        }
        texts_refused_ = !put_on_modem(text->length, text->pdu) || !journal_.forget_text(text->id);
    }
}

// Write message to memory, 3GPP TS 27.005 4.4: as received, unread.
bool mailbox_t::put_on_modem(size_t length, const std::string& pdu) {
    const command_t command = {.line = fmt::format("AT+CMGW={},0", length),
                               .limit = limit_t::storage,
                               .shape = reply_shape_t::entry,
                               .prefixes = {"+CMGW:"},
                               .entry = pdu};
    const bool put = link_.exchange(command).ok();
    if (!put && !std::exchange(refused_text_told_, true)) {
        warn_unless_lost("the modem does not take back a message that is no card; such are kept in the journal");
    }
    refused_text_told_ = !put;
    return put;
}

// Without an acknowledgement, or with a negative one (2), the network keeps the message (3GPP TS 27.005 4.7).
void mailbox_t::acknowledge(bool safe) {
    if (!announcements_.are_acknowledged()) {
        return;
    }
    const command_t command = {.line = safe ? "AT+CNMA" : "AT+CNMA=2", .limit = limit_t::storage};
    if (!link_.exchange(command).ok() && safe) {
        warn_unless_lost("the modem refused the acknowledgement of a delivered message");
        announcements_.renew();
        list_soon();
    }
}

}  // namespace radio
