#include "relay/event_teller.h"

#include <fmt/format.h>

#include <chrono>
#include <fstream>

#include "base/file.h"

namespace fleet {

namespace {

using client::obstacle_t;
using std::chrono::milliseconds;

constexpr uint32_t longest_wait = 1000;  // milliseconds, for an event: between two looks whether the modem ends
constexpr milliseconds between_tries{300};

std::optional<result_t> result_of(const std::string& kind) {
    return kind == "queued"      ? std::optional(result_t::queued)
           : kind == "sent"      ? std::optional(result_t::sent)
           : kind == "set aside" ? std::optional(result_t::aside)
           : kind == "cancelled" ? std::optional(result_t::cancelled)
                                 : std::nullopt;
}

}  // namespace

bool settle(modem_t& modem, uint64_t card, const std::string& state, uint64_t sent) {
    constexpr milliseconds at_once{0};
    constexpr milliseconds later{5000};  // somebody at the machine does not want it there
    if (state == "sent" || state == "set aside" || state == "cancelled") {
        const auto lease = modem.leases.end(card, state == "sent" ? sent : 0);
        if (lease && lease->queued) {
            if (state == "cancelled" && !lease->is_cancelled) {
                lease->queued->give_back(lease->is_put_back ? at_once : later);
            } else {
                lease->queued->acknowledge();
            }
        }
        return true;
    }
    return false;
}

event_teller_t::event_teller_t(modem_t& modem, std::filesystem::path cursor)
    : modem_(modem),
      link_(modem.device),
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
    tell_page(member(read_json(*answer), "events"));
}

void event_teller_t::tell_page(const json_t& events) {
    const uint64_t before = cursor_;
    if (events.is_array()) {
        for (const json_t& event : events) {
            if (!tell(event)) {
                break;
            }
            cursor_ = std::max(cursor_, number(event, "id"));
        }
    }
    if (cursor_ != before) {
        write_cursor();
    }
}

/// False: it was not told, for the modem ends.
bool event_teller_t::tell(const json_t& event) {
    const std::string kind = text(event, "kind");
    const json_t& message = member(event, "message");
    if (!message.is_object()) {
        return kind == "stored" ? tell_received(event) : tell_modem(event);
    }
    const auto card = card_of(text(message, "token"), modem_.created);
    return !card || tell_result(event, *card);
}

// What was put back for another modem has come to nothing yet. The server has the result before the queue lets go of
// the card: who gets it a second time looks there first.
bool event_teller_t::tell_result(const json_t& event, uint64_t card) {
    const std::string kind = text(event, "kind");
    const auto result = result_of(kind);
    const auto lease = modem_.leases.find(card);
    const bool is_over_for_all = result && (result != result_t::cancelled || (lease && lease->is_cancelled));
    if (is_over_for_all) {
        const std::string told = text_of(event_for_fleet(event, card, modem_.key));
        if (!store(nats::message_t(modem_.names.result(card, *result), told), token_of_event(event))) {
            return false;
        }
        if (lease && !lease->reply.empty()) {
            static_cast<void>(modem_.server.publish(lease->reply, told));
        }
    }
    static_cast<void>(settle(modem_, card, kind, number(member(member(event, "message"), "datagrams"), "sent")));
    return true;
}

// One that was removed since is told of without its octets.
bool event_teller_t::tell_received(const json_t& event) {
    json_t card = member(event, "card");
    const uint64_t of_inbox = number(card, "number");
    const auto octets = link_.ask([&](client::client_t& client) { return client.inbox_octets(of_inbox); });
    if (!octets && octets.failure().obstacle != obstacle_t::request) {
        return false;  // the service is gone; it is told when that is back
    }
    if (!octets) {
        return tell_modem(event);
    }
    card["path"] = nullptr;  // the machine's own affair
    card["modem"] = modem_.key;
    nats::message_t message(modem_.names.received(modem_.key), *octets);
    message.set_header(header_card, text_of(card));
    return store(message,
                 fmt::format("{}-{}-{}-{}", modem_.key, of_inbox, number(card, "received"), text(card, "file")));
}

bool event_teller_t::tell_modem(json_t event) {
    event["text"] = fmt::format("{}: {}", modem_.key, text(event, "text"));
    event["modem"] = modem_.key;
    return store(nats::message_t(modem_.names.modem(modem_.key), text_of(event)), token_of_event(event));
}

/// Of one that is told a second time, when it is not known whether the first time came to anything.
std::string event_teller_t::token_of_event(const json_t& event) const {
    return fmt::format("{}-event-{}-{}", modem_.key, number(event, "id"), number(event, "time"));
}

bool event_teller_t::store(const nats::message_t& message, const std::string& token) {
    for (;;) {
        const auto stored = modem_.server.store(message, token);
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
