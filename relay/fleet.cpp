// Opening a fleet, its status, and the outbox: the queue of cards, with what became of them in the stream of events.
#include "relay/fleet.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <thread>

#include "relay/fleet_json.h"
#include "relay/queued_card.h"

namespace fleet {

using client::answer_t;
using client::failure_t;
using client::obstacle_t;
using nats::message_t;
using nats::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int stream_is_full = 10077;  // JetStream's code for what a stream's limits refuse

failure_t refused(uint32_t code, std::string text) {
    return {code, std::move(text), obstacle_t::request};
}

bool is_number(std::string_view text) {
    constexpr size_t most_digits = 20;
    const std::string_view digits = text.substr(text.starts_with('+') ? 1 : 0);
    return !digits.empty() && digits.size() <= most_digits &&
           digits.find_first_not_of("0123456789") == std::string_view::npos;
}

/// What a service would refuse, too; empty when nothing is wrong.
std::string problem_of(const client::handed_in_card_t& card) {
    constexpr size_t most_octets = 32'640;  // of 255 datagrams
    constexpr size_t longest_text = 255;
    if (!is_number(card.number) || (!card.from.empty() && !is_number(card.from))) {
        return fmt::format("the phone number {} is none: 1 to 20 digits, with + before an international one",
                           is_number(card.number) ? "of the sender" : "of the receiver");
    }
    if (card.card.octets.empty()) {
        return "the card is empty";
    }
    if (card.card.octets.size() > most_octets) {
        return "the card needs more than 255 datagrams";
    }
    return card.file.size() > longest_text || card.token.size() > longest_text
               ? "the name of the card's file, or its token, is longer than 255 octets"
               : "";
}

message_t message_for(const client::handed_in_card_t& card, const names_t& names) {
    return write_card(names.send(card.from),
                      {std::string(card.card.octets), card.card.is_utf8, card.card.long_reference,
                       std::string(card.number), std::string(card.file), card.expires, ""});
}

bool is_over(const json_t& message) {
    return message["state"] == "sent" || message["state"] == "cancelled";
}

}  // namespace

answer_t<std::unique_ptr<fleet_t>> fleet_t::open(const address_t& address) {
    auto connection = nats::connection_t::open(address.server, "zpd", false);
    if (!connection) {
        return connection.failure();
    }
    return std::unique_ptr<fleet_t>(new fleet_t(std::move(*connection), names_t(address.group)));
}

bool fleet_t::is_missing() const {
    const auto cards = connection_->stream(names_.cards());
    return cards && !*cards;
}

failure_t fleet_t::explained(const failure_t& failure) const {
    if (failure.code == stream_is_full) {
        return refused(client::error_full, fmt::format("the queue of the group {} is full, nothing was added: {}",
                                                       names_.group(), failure.text));
    }
    if (failure.obstacle != obstacle_t::no_answer || !connection_->is_connected()) {
        return failure;
    }
    if (const std::string refusal = connection_->last_refusal(); !refusal.empty()) {
        return {0, fmt::format("the server does not let this user do it: {}", refusal), obstacle_t::access};
    }
    return is_missing() ? missing() : failure;
}

failure_t fleet_t::missing() const {
    return refused(client::error_not_found, fmt::format("the server {} has no group {}; make it with: zpd fleet make",
                                                        connection_->url(), names_.group()));
}

answer_t<client::done_t> fleet_t::look_for_group() {
    is_found_ = is_found_ || !is_missing();
    return is_found_ ? answer_t<client::done_t>(client::done_t{}) : missing();
}

answer_t<std::string> fleet_t::service_status() {
    const auto cards = connection_->stream(names_.cards());
    if (!cards || !*cards) {
        return explained(cards ? failure_t{0, "no group", obstacle_t::no_answer} : cards.failure());
    }
    auto entries = connection_->entries(names_.modems());
    if (!entries) {
        return explained(entries.failure());
    }
    std::ranges::sort(*entries, {}, &nats::entry_t::key);
    json_t modems = json_t::array();
    for (const nats::entry_t& entry : *entries) {
        modems.push_back(modem_of(entry));
    }
    const auto counts = card_counts();
    return counts
               ? answer_t<std::string>(text_of({{"fleet",
                                                 {{"group", names_.group()},
                                                  {"server", connection_->url()},
                                                  {"cards", {{"waiting", counts->waiting}, {"taken", counts->taken}}},
                                                  {"modems", modems}}}}))
               : explained(counts.failure());
}

// By the consumers: a stream may have more, that were acknowledged as a server was killed. Those of a phone that never
// was there have no consumer.
answer_t<fleet_t::card_counts_t> fleet_t::card_counts() {
    const auto subjects = connection_->subjects(names_.cards(), names_.all_sent());
    if (!subjects) {
        return subjects.failure();
    }
    card_counts_t counts;
    for (const auto& [subject, messages] : *subjects) {
        const auto consumer = connection_->consumer(names_.cards(), names_t::consumer_of_subject(subject));
        if (!consumer) {
            return consumer.failure();
        }
        counts.waiting += *consumer ? (*consumer)->waiting : messages;
        counts.taken += *consumer ? (*consumer)->taken : 0;
    }
    return counts;
}

answer_t<nats::stored_t> fleet_t::store(const client::handed_in_card_t& card) {
    const std::string token(card.token);
    auto stored = connection_->store(message_for(card, names_), token);
    if (stored || stored.failure().obstacle != obstacle_t::no_answer || !connection_->is_connected() || !is_missing()) {
        return stored;
    }
    if (const auto made = make(*connection_, names_, std::nullopt); !made) {
        return made.failure();
    }
    return connection_->store(message_for(card, names_), token);
}

answer_t<std::string> fleet_t::outbox_add(const client::handed_in_card_t& card) {
    if (std::string problem = problem_of(card); !problem.empty()) {
        return refused(client::error_value, std::move(problem));
    }
    const auto stored = store(card);
    if (!stored) {
        return explained(stored.failure());
    }
    if (stored->known) {
        const auto message = message_of(stored->sequence);
        return message ? answer_t<std::string>(text_of(*message)) : message.failure();
    }
    json_t message = waiting_message(message_for(card, names_));
    message["id"] = stored->sequence;
    message["handed_in"] = message["changed"] = std::time(nullptr);
    return text_of(message);
}

// What was sent stays sent: a modem that took the card while that was not told yet may tell of it later.
answer_t<std::optional<nats::message_t>> fleet_t::last_result(uint64_t id) const {
    auto last = connection_->last_in(names_.events(), names_.results_of(id));
    if (last && *last && (*last)->subject() == names_.result(id, result_t::queued)) {
        auto sent = connection_->last_in(names_.events(), names_.result(id, result_t::sent));
        if (!sent || *sent) {
            return sent;
        }
    }
    return last;
}

answer_t<std::optional<json_t>> fleet_t::result_of(uint64_t id) {
    const auto result = last_result(id);
    if (!result) {
        return explained(result.failure());
    }
    if (!*result) {
        return std::optional<json_t>();
    }
    json_t message = message_of_result(**result);
    if (message["state"] != "waiting") {
        cancelling_.erase(id);
    } else if (cancelling_.contains(id)) {
        message["state"] = "cancelling";
    }
    return std::optional(std::move(message));
}

answer_t<std::optional<json_t>> fleet_t::waiting_of(uint64_t id) {
    const auto card = connection_->next_in(names_.cards(), names_.all_sent(), id);
    if (!card) {
        return explained(card.failure());
    }
    return *card && (*card)->sequence() == id ? std::optional(waiting_message(**card)) : std::nullopt;
}

// A card leaves the queue after its result is told: one that is found in neither may be in between. And any server of a
// cluster answers, also one that is behind the others for a moment.
answer_t<json_t> fleet_t::message_of(uint64_t id) {
    if (const auto found = look_for_group(); !found) {
        return found.failure();
    }
    constexpr int tries = 10;
    constexpr milliseconds pause{50};
    for (int i = 0; i < tries; ++i) {
        for (const auto look : {&fleet_t::result_of, &fleet_t::waiting_of}) {
            auto message = (this->*look)(id);
            if (!message) {
                return message.failure();
            }
            if (*message) {
                return std::move(**message);
            }
        }
        std::this_thread::sleep_for(pause);
    }
    return refused(client::error_not_found, fmt::format("there is no message {}", id));
}

// A result is told to who listens before the stream has it.
answer_t<std::string> fleet_t::outbox_watch(uint64_t id, uint64_t version, uint32_t wait) {
    constexpr milliseconds look_again{50};
    const auto deadline = steady_clock::now() + milliseconds(std::min(wait, client::longest_wait));
    std::optional<nats::subscription_t> results;
    if (wait != 0) {
        auto subscription = connection_->subscribe(names_.results_of(id));
        if (!subscription) {
            return explained(subscription.failure());
        }
        results.emplace(std::move(*subscription));
    }
    for (bool told = false;;) {
        const auto message = message_of(id);
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        if (!message || (*message)["version"] != version || left.count() <= 0) {
            return message ? answer_t<std::string>(text_of(*message)) : message.failure();
        }
        if (told) {
            std::this_thread::sleep_for(std::min(left, look_again));
        } else if (const auto result = results->next(left); !result) {
            return explained(result.failure());
        } else {
            told = result->has_value();
        }
    }
}

answer_t<client::done_t> fleet_t::read_results(bool all) {
    if (auto found = look_for_group(); !found) {
        return found;
    }
    results_t results{all, {}};
    const std::string subject = all ? names_.all_results() : names_.results(result_t::aside);
    const auto last = connection_->last_in(names_.events(), subject);
    if (!last) {
        return explained(last.failure());
    }
    if (*last) {
        auto stream = connection_->follow(names_.events(), subject, 1);
        for (uint64_t at = 0; stream && at < (*last)->sequence();) {
            const auto result = stream->next(nats::longest_call);
            if (!result || !*result) {
                return result ? failure_t{0, "the server does not tell its results", obstacle_t::no_answer}
                              : result.failure();
            }
            at = (*result)->sequence();
            results.ids.insert(id_of_result((*result)->subject()));
        }
        if (!stream) {
            return explained(stream.failure());
        }
    }
    results_ = std::move(results);
    return client::done_t{};
}

/// Of those in the queue and those with results that count.
answer_t<std::optional<json_t>> fleet_t::next_message(uint64_t after) {
    const auto with_result = results_->ids.upper_bound(after);
    const auto card = connection_->next_in(names_.cards(), names_.all_sent(), after + 1);
    if (!card) {
        return explained(card.failure());
    }
    const bool queued = *card && (with_result == results_->ids.end() || (*card)->sequence() <= *with_result);
    if (!queued && with_result == results_->ids.end()) {
        return std::optional<json_t>();
    }
    auto message = result_of(queued ? (*card)->sequence() : *with_result);
    if (message && !*message) {
        return std::optional(queued ? waiting_message(**card) : json_t{{"id", *with_result}, {"state", "cancelled"}});
    }
    return message;
}

answer_t<std::string> fleet_t::outbox_list(uint64_t after, bool all) {
    constexpr size_t most = 100;
    if (after == 0 || !results_ || results_->all != all) {
        if (const auto read = read_results(all); !read) {
            return read.failure();
        }
    }
    json_t messages = json_t::array();
    while (messages.size() < most) {
        auto message = next_message(after);
        if (!message) {
            return message.failure();
        }
        if (!*message) {
            break;
        }
        after = (**message)["id"];
        if (all || !is_over(**message)) {
            messages.push_back(std::move(**message));
        }
    }
    const bool more = messages.size() == most;
    return text_of({{"messages", std::move(messages)}, {"more", more}});
}

/// The answer of the relay that has it; error_not_now when there is none.
answer_t<json_t> fleet_t::order(const char* what, const json_t& message, const json_t& request, milliseconds wait) {
    const uint64_t id = message["id"];
    const auto answer = connection_->request(names_.order(what), text_of(request), wait);
    if (!answer) {
        return connection_->is_connected() && answer.failure().obstacle == obstacle_t::no_answer
                   ? refused(client::error_not_now, fmt::format("no relay that is there has message {}", id))
                   : answer.failure();
    }
    if (const std::string error = text(read_object(answer->data()), "error"); !error.empty()) {
        return refused(client::error_value, fmt::format("message {}: {}", id, error));
    }
    json_t now = message_of_answer(id, *answer);
    now["version"] = message["version"];
    return now;
}

// Out of the queue first: no other relay is given it then.
answer_t<std::string> fleet_t::outbox_cancel(uint64_t id) {
    constexpr milliseconds by_its_relay{2000};
    constexpr milliseconds by_any{300};  // one may just have taken it
    const auto message = message_of(id);
    if (!message || is_over(*message)) {
        return message ? answer_t<std::string>(text_of(*message)) : message.failure();
    }
    if (const auto removed = connection_->remove(names_.cards(), id); !removed) {
        return explained(removed.failure());
    }
    const bool is_taken = (*message)["version"] != 0;
    auto answer = order("cancel", *message, {{"id", id}}, is_taken ? by_its_relay : by_any);
    const bool is_nobodys = !answer && answer.failure().code == client::error_not_now;
    const bool was_over_there = answer && is_over(*answer) && (*message)["state"] == "set aside";
    if (is_nobodys || was_over_there) {  // no relay tells it
        const std::string event = text_of(cancelled_event(*message));
        const auto told = connection_->store(message_t(names_.result(id, result_t::cancelled), event), "");
        answer = told ? message_of(id) : answer_t<json_t>(explained(told.failure()));
    } else if (answer && !is_over(*answer)) {
        cancelling_.insert(id);
    }
    return answer ? answer_t<std::string>(text_of(*answer)) : answer.failure();
}

answer_t<std::string> fleet_t::outbox_retry(uint64_t id, uint64_t expires) {
    auto message = message_of(id);
    if (message && (*message)["version"] != 0) {  // else it waits in the queue, and goes when a modem takes it
        message = is_over(*message)
                      ? refused(client::error_not_now,
                                fmt::format("message {} is {}", id, (*message)["state"].get<std::string>()))
                      : order("retry", *message, {{"id", id}, {"expires", expires}}, milliseconds(2000));
    }
    return message ? answer_t<std::string>(text_of(*message)) : message.failure();
}

}  // namespace fleet
