#include "relay/event_teller.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <set>
#include <utility>

#include "base/file.h"

namespace fleet {

namespace {

using client::obstacle_t;
using std::chrono::milliseconds;

constexpr uint32_t longest_wait = 1000;  // milliseconds, for an event: between two looks whether the modem ends
constexpr milliseconds between_tries{300};
constexpr milliseconds between_pages{20};  // so that what comes fast is told together

std::optional<result_t> result_of(const std::string& kind) {
    return kind == "queued"      ? std::optional(result_t::queued)
           : kind == "sent"      ? std::optional(result_t::sent)
           : kind == "set aside" ? std::optional(result_t::aside)
           : kind == "cancelled" ? std::optional(result_t::cancelled)
                                 : std::nullopt;
}

}  // namespace

std::optional<lease_t> settle(modem_t& modem, uint64_t card, const std::string& state, uint64_t sent) {
    constexpr milliseconds at_once{0};
    constexpr milliseconds later{5000};  // somebody at the machine does not want it there
    if (state != "sent" && state != "set aside" && state != "cancelled") {
        return std::nullopt;
    }
    auto lease = modem.leases.end(card, state == "sent" ? sent : 0);
    if (lease && lease->queued) {
        if (state == "cancelled" && !lease->is_cancelled) {
            lease->queued->give_back(lease->is_put_back ? at_once : later);
        } else {
            lease->queued->acknowledge();
        }
    }
    return lease;
}

event_teller_t::event_teller_t(modem_t& modem, std::filesystem::path cursor)
    : modem_(modem),
      link_(modem.device),
      batch_(modem.server),
      file_(std::move(cursor)),
      service_(modem, "the service"),
      server_(modem, "the server's stream") {
    read_cursor();
}

void event_teller_t::start() {
    thread_ = std::thread([this] { run(); });
}

void event_teller_t::stop() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void event_teller_t::run() {
    while (!modem_.is_ending) {
        go_on();
    }
    write_cursor();
}

bool event_teller_t::pause(milliseconds time) const {
    std::this_thread::sleep_for(time);
    return !modem_.is_ending;
}

void event_teller_t::go_on() {
    if (modem_.created == 0) {  // which cards are the queue's is not known yet
        static_cast<void>(pause(between_tries));
        return;
    }
    if (!is_checked_) {
        check_cursor();
    }
    const auto answer = link_.ask([&](client::client_t& client) { return client.events(cursor_, 0, longest_wait); });
    if (!answer) {
        service_.is_lost(answer.failure().text);
        is_checked_ = false;
        static_cast<void>(pause(between_tries));
        return;
    }
    service_.is_there();
    const json_t page = read_json(*answer);
    tell_page(member(page, "events"));
    if (!is_true(page, "more")) {
        std::this_thread::sleep_for(between_pages);
    }
}

// The server has the results before the queue lets go of their cards: who gets one a second time looks there first.
void event_teller_t::tell_page(const json_t& events) {
    std::vector<telling_t> tellings = tellings_of(events);
    if (!store_together(tellings)) {
        leave_out_overtaken(tellings);
        store_one_by_one(tellings);
    }
    for (telling_t& telling : tellings) {
        settle_told(telling);
    }
    if (!tellings.empty()) {
        cursor_ = std::max(cursor_, tellings.back().event);
        write_cursor();
    }
}

/// What comes before a result that may be stored already is not stored behind it.
void event_teller_t::leave_out_overtaken(std::vector<telling_t>& tellings) {
    std::set<uint64_t> later;
    for (size_t i = tellings.size(); i-- > 0;) {
        telling_t& telling = tellings[i];
        if (telling.card != 0 && !later.insert(telling.card).second) {
            telling.subject.clear();
        }
    }
}

/// Those that could not be, when the modem ends, are not among them any more.
void event_teller_t::store_one_by_one(std::vector<telling_t>& tellings) {
    const auto not_stored = std::ranges::find_if(tellings, [&](const telling_t& telling) { return !store(telling); });
    tellings.erase(not_stored, tellings.end());
}

/// Those before the first one of which the service does not tell all.
std::vector<event_teller_t::telling_t> event_teller_t::tellings_of(const json_t& events) {
    std::vector<telling_t> tellings;
    for (const json_t& event : events.is_array() ? events : json_t::array()) {
        auto telling = telling_of(event);
        if (!telling) {
            break;
        }
        tellings.push_back(std::move(*telling));
    }
    return tellings;
}

/// None: the service is gone; it is told when that is back.
std::optional<event_teller_t::telling_t> event_teller_t::telling_of(const json_t& event) {
    telling_t telling;
    telling.event = number(event, "id");
    telling.token = token_of_event(event);
    telling.kind = text(event, "kind");
    const json_t& message = member(event, "message");
    if (message.is_object()) {
        telling.card = card_of(text(message, "token"), modem_.created).value_or(card_name_t{}).card;
        fill_in_result(event, telling);
    } else if (telling.kind != "stored") {
        fill_in_modem(event, telling);
    } else if (!fill_in_received(event, telling)) {
        return std::nullopt;
    }
    return telling;
}

// What was put back for another modem has come to nothing yet.
void event_teller_t::fill_in_result(const json_t& event, telling_t& telling) const {
    const auto result = result_of(telling.kind);
    if (telling.card == 0 || !result) {
        return;
    }
    const auto lease = modem_.leases.find(telling.card);
    if (*result != result_t::cancelled || (lease && lease->is_cancelled)) {
        telling.subject = modem_.names.result(telling.card, *result);
    }
    telling.data = text_of(event_for_fleet(event, telling.card, modem_.key));
    telling.sent = number(member(member(event, "message"), "datagrams"), "sent");
}

/// False: the service is gone.
bool event_teller_t::fill_in_received(const json_t& event, telling_t& telling) {
    json_t card = member(event, "card");
    const uint64_t of_inbox = number(card, "number");
    auto octets = link_.ask([&](client::client_t& client) { return client.inbox_octets(of_inbox); });
    if (!octets && octets.failure().obstacle != obstacle_t::request) {
        return false;
    }
    if (!octets) {
        fill_in_modem(event, telling);
        return true;
    }
    card["path"] = nullptr;  // the machine's own affair
    card["modem"] = modem_.key;
    telling.subject = modem_.names.received(modem_.key);
    telling.data = std::move(*octets);
    telling.description = text_of(card);
    telling.token = fmt::format("{}-{}-{}-{}", modem_.key, of_inbox, number(card, "received"), text(card, "file"));
    return true;
}

void event_teller_t::fill_in_modem(json_t event, telling_t& telling) const {
    event["text"] = fmt::format("{}: {}", modem_.key, text(event, "text"));
    event["modem"] = modem_.key;
    telling.subject = modem_.names.modem(modem_.key);
    telling.data = text_of(event);
}

/// Of one that is told a second time, when it is not known whether the first time came to anything.
std::string event_teller_t::token_of_event(const json_t& event) const {
    return fmt::format("{}-event-{}-{}", modem_.key, number(event, "id"), number(event, "time"));
}

/// False when any may not be stored.
bool event_teller_t::store_together(const std::vector<telling_t>& tellings) {
    for (const telling_t& telling : tellings) {
        const auto message = telling.subject.empty() ? client::answer_t<nats::message_t*>(nullptr)
                                                     : batch_.add(telling.subject, telling.data, telling.token);
        if (!message) {
            return false;
        }
        if (!telling.description.empty()) {
            (*message)->set_header(header_card, telling.description);
        }
    }
    const auto stored = batch_.store();
    if (stored && !tellings.empty()) {
        server_.is_there();
    }
    return static_cast<bool>(stored);
}

/// Alone, until it is stored, or the modem ends: false.
bool event_teller_t::store(const telling_t& telling) {
    if (telling.subject.empty()) {
        return true;
    }
    nats::message_t message(telling.subject, telling.data);
    message.set_header(header_card, telling.description);
    for (;;) {
        const auto stored = modem_.server.store(message, telling.token);
        if (stored) {
            server_.is_there();
            return true;
        }
        if (stored.failure().obstacle == obstacle_t::request && stored.failure().code == 0) {  // never: it is too large
            modem_.told(base::priority_t::error,
                        fmt::format("{}: {}; it is left out", modem_.device, stored.failure().text));
            return true;
        }
        const std::string refusal = modem_.server.last_refusal();
        server_.is_lost(stored.failure().text + (refusal.empty() ? "" : " (" + refusal + ")"));
        if (!pause(between_tries)) {
            return false;
        }
    }
}

// It may have been called back since it was looked at: the queue has it no more then, and this is its end.
void event_teller_t::settle_told(telling_t& telling) {
    if (telling.card == 0) {
        return;
    }
    const auto ended = settle(modem_, telling.card, telling.kind, telling.sent);
    if (telling.kind == "cancelled" && telling.subject.empty() && ended && ended->is_cancelled) {
        telling.subject = modem_.names.result(telling.card, result_t::cancelled);
        static_cast<void>(store(telling));
    }
    const auto lease = ended ? ended : modem_.leases.find(telling.card);
    if (lease && !lease->reply.empty() && !telling.subject.empty()) {
        static_cast<void>(modem_.server.publish(lease->reply, telling.data));
    }
}

void event_teller_t::read_cursor() {
    constexpr size_t longest = 32;
    std::string octets;
    if (base::read_file(file_, longest, &octets) == 0) {
        cursor_ = std::strtoull(octets.c_str(), nullptr, 10);
    }
}

// A home that was made anew counts its events anew: where the cursor's event should be there is nothing then.
void event_teller_t::check_cursor() {
    const auto answer =
        link_.ask([&](client::client_t& client) { return client.events(cursor_ == 0 ? 0 : cursor_ - 1, 0, 0); });
    if (!answer) {
        return;
    }
    const json_t page = read_json(*answer);
    const json_t& events = member(page, "events");
    if (events.is_array() && events.empty()) {
        cursor_ = 0;
    }
    is_checked_ = true;
}

// Whole or not at all: after a loss of power the former one is there, and some events are told again.
void event_teller_t::write_cursor() {
    const std::filesystem::path fresh = file_.native() + ".new";
    std::error_code failed;
    {
        std::ofstream stream(fresh, std::ios::trunc);
        stream << cursor_ << '\n';
        stream.close();
        failed = stream ? std::error_code() : std::make_error_code(std::errc::io_error);
    }
    if (!failed) {
        std::filesystem::rename(fresh, file_, failed);
    }
    if (failed && !is_write_told_) {
        modem_.told(base::priority_t::error,
                    fmt::format("{}: cannot write {}; after a start, what was told is told again", modem_.device,
                                file_.native()));
    }
    is_write_told_ = static_cast<bool>(failed);
}

}  // namespace fleet
