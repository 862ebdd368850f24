#include "relay/card_taker.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "relay/event_teller.h"
#include "relay/queued_card.h"

namespace fleet {

namespace {

using client::client_t;
using client::obstacle_t;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds a_while{200};
constexpr milliseconds between_own_looks{1000};
constexpr milliseconds longest_rest{5000};  // after a failure that passes, or a full outbox
constexpr int most_at_once = 256;           // cards
constexpr uint64_t least_ahead = 16;        // datagrams that a modem has before it, however slow it is
constexpr size_t looks_a_beat = 20;         // at cards of which nothing was heard

// A server that has this machine in an account of its own remembers each request for cards, about a kilobyte, as long
// as there is the subscription that asked.
constexpr seconds pulls_age{60};

int64_t unix_time() {
    return duration_cast<seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// Why no datagram can go.
std::string hindrance_of(const json_t& radio) {
    if (!is_true(radio, "present")) {
        const std::string loss = text(radio, "loss");
        return loss.empty() ? "there is no modem" : loss;
    }
    return text(radio, "system_type") == "none" ? "the modem is not registered with a network" : "";
}

/// Why none has gone lately: a refusal that none has got through after.
std::string doubt_of(const json_t& radio) {
    const json_t& refusals = member(radio, "refusals");
    for (const json_t& refusal : refusals.is_array() ? refusals : json_t::array()) {
        if (!is_true(refusal, "overcome")) {
            return text(refusal, "text");
        }
    }
    return "";
}

}  // namespace

card_taker_t::card_taker_t(modem_t& modem, std::string machine)
    : modem_(modem),
      machine_(std::move(machine)),
      since_(unix_time()),
      link_(modem.device),
      orders_(modem, link_),
      service_(modem, "the service"),
      server_(modem, "the server") {}

void card_taker_t::start() {
    thread_ = std::thread([this] { run(); });
}

void card_taker_t::end() {
    is_stopping_ = true;
    modem_.leases.wake();
}

void card_taker_t::stop() {
    end();
    if (thread_.joinable()) {
        thread_.join();
    }
}

milliseconds card_taker_t::beat_time() const {
    constexpr int beats = 6;  // within the server's patience
    return ack_wait_ / beats;
}

// Leases are shorter than the server's patience: an outbox that hears nothing more has let go of a card before another
// modem gets it.
seconds card_taker_t::lease_time() const {
    return std::max(seconds(1), duration_cast<seconds>(ack_wait_ * 2 / 3));
}

void card_taker_t::run() {
    while (!is_stopping_) {
        if (clock_t::now() >= next_beat_) {
            next_beat_ = clock_t::now() + beat_time();
            beat();
        }
        orders_.serve();
        take();
    }
    put_back();
    if (const auto dropped = modem_.server.drop(modem_.names.modems(), modem_.key); !dropped) {
        modem_.told(base::priority_t::warning, fmt::format("{}: {}", modem_.device, dropped.failure().text));
    }
}

void card_taker_t::beat() {
    const bool answers = look_at_service();
    is_usable_ = answers && status_.hindrance.empty();
    const bool has_queue = look_at_queue();
    std::vector<lease_t> leases = modem_.leases.all();
    std::erase_if(leases, [](const lease_t& lease) { return lease.message == 0; });
    if (answers && has_queue && report_progress(leases)) {
        renew(leases);
    }
    if (answers) {
        look_at_waiting(leases);
    }
    if (answers) {
        put_back_when_hindered();
    }
    if (has_queue) {
        show_presence();
    }
    is_ready_ = is_ready_ || (answers && has_queue);
}

bool card_taker_t::look_at_service() {
    const auto answer = link_.ask([](client_t& client) { return client.service_status(); });
    if (!answer) {
        service_.is_lost(answer.failure().text);
        status_ = status_t();
        status_.hindrance = answer.failure().text;
        return false;
    }
    service_.is_there();
    const json_t status = read_json(*answer);
    const json_t& outbox = member(status, "outbox");
    const json_t& radio = member(status, "radio");
    status_ = {.number = text(status, "number"),
               .network = text(radio, "system_type"),
               .hindrance = hindrance_of(radio),
               .doubt = doubt_of(radio),
               .queue = number(outbox, "waiting") + number(outbox, "sending"),
               .room = number(outbox, "room")};
    return true;
}

// Again and again: it may be made later, or anew.
bool card_taker_t::look_at_queue() {
    auto found = modem_.server.stream(modem_.names.cards());
    const auto made = found && *found ? client::answer_t<client::done_t>(client::done_t{})
                                      : make(modem_.server, modem_.names, std::nullopt);
    if (made && found && !*found) {  // when it was made is in each card's token
        found = modem_.server.stream(modem_.names.cards());
    }
    const auto consumer =
        !made ? client::answer_t<nats::consumer_t>(made.failure()) : consumer_of(modem_.server, modem_.names, "");
    if (!found || !*found || !consumer) {
        server_.is_lost(!found      ? found.failure().text
                        : !consumer ? consumer.failure().text
                                    : "the queue " + modem_.names.cards() + " is gone");
        any_.reset();
        own_.reset();
        return false;
    }
    server_.is_there();
    modem_.created = (*found)->created;
    ack_wait_ = consumer->ack_wait;
    if (clock_t::now() >= next_pulls_) {
        next_pulls_ = clock_t::now() + pulls_age;
        any_.reset();
        own_.reset();
    }
    if (!any_) {
        if (auto queue = modem_.server.pull(modem_.names.cards(), names_t::consumer(""))) {
            any_.emplace(std::move(*queue));
        }
    }
    if ((!own_ || own_number_ != status_.number) && !status_.number.empty()) {
        own_.reset();
        if (consumer_of(modem_.server, modem_.names, status_.number)) {
            if (auto queue = modem_.server.pull(modem_.names.cards(), names_t::consumer(status_.number))) {
                own_.emplace(std::move(*queue));
                own_number_ = status_.number;
            }
        }
    }
    return any_.has_value();
}

/// The reports of a consumer's cards are taken in their order, so the last one's answer is for all.
bool card_taker_t::report_progress(std::vector<lease_t>& leases) {
    std::ranges::sort(leases, {}, [](const lease_t& lease) { return lease.queued->subject(); });
    for (size_t i = 0; i < leases.size(); ++i) {
        const bool is_last = i + 1 == leases.size() || leases[i + 1].queued->subject() != leases[i].queued->subject();
        if (!is_last) {
            leases[i].queued->report_in_progress();
        } else if (const auto taken = modem_.server.confirm_progress(*leases[i].queued); !taken) {
            server_.is_lost(taken.failure().text);
            return false;
        }
    }
    return true;
}

void card_taker_t::renew(const std::vector<lease_t>& leases) {
    if (leases.empty()) {
        return;
    }
    std::vector<uint64_t> messages;
    std::map<uint64_t, lease_t> by_message;
    for (const lease_t& lease : leases) {
        messages.push_back(lease.message);
        by_message.emplace(lease.message, lease);
    }
    const auto gone = link_.ask(
        [&](client_t& client) { return client.outbox_renew(static_cast<uint32_t>(lease_time().count()), messages); });
    if (!gone) {
        return;
    }
    for (const uint64_t message : *gone) {  // what became of it may have been told before it was known whose it was
        if (const auto lease = by_message.find(message); lease != by_message.end()) {
            look_at(lease->second);
        }
    }
}

// Of one whose number is held back nobody tells. Some in each beat, in turn.
void card_taker_t::look_at_waiting(const std::vector<lease_t>& leases) {
    for (size_t looks = 0; looks < std::min(looks_a_beat, leases.size()); ++looks) {
        look_at(leases[looked_at_++ % leases.size()]);
    }
}

void card_taker_t::look_at(const lease_t& lease) {
    const auto answer = link_.ask([&](client_t& client) { return client.outbox_watch(lease.message, 0, 0); });
    if (!answer) {
        if (answer.failure().obstacle == obstacle_t::request) {  // the outbox does not know it: another has its home
            static_cast<void>(settle(modem_, lease.card, "cancelled", 0));
        }
        return;
    }
    const json_t message = read_json(*answer);
    static_cast<void>(
        modem_.leases.change(lease.card, [&](lease_t& one) { one.is_held = !member(message, "next_try").is_null(); }));
    const std::string state = text(message, "state");
    if (state == "cancelled") {  // the others' events are told first
        static_cast<void>(settle(modem_, lease.card, state, 0));
    }
}

void card_taker_t::put_back_when_hindered() {
    const std::string& why = status_.hindrance.empty() ? status_.doubt : status_.hindrance;
    if (why.empty() || modem_.leases.size() == 0) {
        hindered_since_.reset();
    } else if (!hindered_since_) {
        hindered_since_ = clock_t::now();
    } else if (clock_t::now() - *hindered_since_ > ack_wait_) {
        modem_.told(base::priority_t::warning,
                    fmt::format("{}: {}; its cards are put back for other modems", modem_.device, why));
        put_back();
        hindered_since_.reset();
    }
}

void card_taker_t::put_back() {
    constexpr seconds patience{10};
    for (const lease_t& lease : modem_.leases.all()) {
        static_cast<void>(modem_.leases.change(lease.card, [](lease_t& one) { one.is_put_back = true; }));
        if (lease.message == 0) {
            continue;
        }
        const auto answer = link_.ask([&](client_t& client) { return client.outbox_cancel(lease.message); });
        if (answer && text(read_json(*answer), "state") == "cancelled") {
            static_cast<void>(settle(modem_, lease.card, "cancelled", 0));
        }
    }
    const auto deadline = clock_t::now() + patience;
    while (is_stopping_ && modem_.leases.size() != 0 && clock_t::now() < deadline) {
        modem_.leases.wait(a_while);
    }
}

void card_taker_t::show_presence() {
    const std::string& hindrance = status_.hindrance.empty() ? status_.doubt : status_.hindrance;
    const json_t value{{"modem", modem_.key},
                       {"machine", machine_},
                       {"device", modem_.device},
                       {"number", status_.number.empty() ? json_t(nullptr) : json_t(status_.number)},
                       {"network", status_.network.empty() ? json_t(nullptr) : json_t(status_.network)},
                       {"registered", status_.hindrance.empty()},
                       {"hindrance", hindrance.empty() ? json_t(nullptr) : json_t(hindrance)},
                       {"queue", status_.queue},
                       {"room", wanted()},
                       {"version", ZPD_RELAY_VERSION},
                       {"since", since_}};
    if (const auto put = modem_.server.put(modem_.names.modems(), modem_.key, text_of(value)); !put) {
        server_.is_lost(put.failure().text);
    }
}

/// So many that it has work for ten seconds, and one that is slow some datagrams. One that was refused its last
/// datagram gets one card within the server's patience: the number may be at fault, or the SIM, which would go through
/// them all.
int card_taker_t::wanted() const {
    if (!is_usable_ || !any_ || clock_t::now() < rest_until_) {
        return 0;
    }
    if (!status_.doubt.empty()) {
        const bool is_free = modem_.leases.outstanding_datagrams() == 0 && status_.room != 0;
        return is_free && clock_t::now() >= next_trial_ ? 1 : 0;
    }
    const uint64_t ahead = modem_.leases.outstanding_datagrams();
    const uint64_t most_ahead = std::max(least_ahead, modem_.leases.pace());
    const double cards =
        ahead < most_ahead ? std::ceil(static_cast<double>(most_ahead - ahead) / datagrams_a_card_) : 0;
    return static_cast<int>(std::min({cards, static_cast<double>(status_.room), double{most_at_once}}));
}

// The phone's own cards first. Their queue is empty as a rule, and says so only after a while: not in each round.
void card_taker_t::take() {
    const int most = wanted();
    const size_t before = modem_.leases.size();
    if (most > 0 && own_ && clock_t::now() >= next_own_) {
        take_from(own_, most, milliseconds(0));
        next_own_ = clock_t::now() + (modem_.leases.size() == before ? between_own_looks : milliseconds(0));
    }
    if (most > 0 && modem_.leases.size() == before && any_) {
        take_from(any_, most, milliseconds(0));
    }
    if (most > 0 && modem_.leases.size() == before && any_) {  // there was none: the next one is taken as it comes
        take_from(any_, 1, a_while);
    }
    if (most == 0) {
        modem_.leases.wait(std::min(a_while, beat_time()));
    }
}

void card_taker_t::take_from(std::optional<nats::pull_t>& queue, int most, milliseconds wait) {
    auto cards = queue->take(most, wait);
    if (!cards) {
        server_.is_lost(cards.failure().text);
        queue.reset();
        next_beat_ = std::min(next_beat_, clock_t::now() + a_while);
        modem_.leases.wait(a_while);
        return;
    }
    hand_in(std::move(*cards));
}

void card_taker_t::hand_in(std::vector<nats::message_t> messages) {
    std::vector<taken_t> taken;
    for (nats::message_t& message : messages) {
        if (auto one = look_at(std::move(message))) {
            taken.push_back(std::move(*one));
        }
    }
    if (!status_.doubt.empty() && !taken.empty()) {
        next_trial_ = clock_t::now() + ack_wait_;
    }
    const auto lease = static_cast<uint32_t>(lease_time().count());
    std::vector<client::handed_in_card_t> cards;
    cards.reserve(taken.size());
    for (const taken_t& one : taken) {
        cards.push_back({.card = {one.card.octets, one.card.is_utf8, one.card.long_reference},
                         .number = one.card.number,
                         .file = one.card.file,
                         .expires = one.card.expires,
                         .token = one.token,
                         .lease = lease});
    }
    if (cards.empty()) {
        return;
    }
    const auto answers = link_.ask([&](client_t& client) { return client.outbox_add_all(cards); });
    for (size_t i = 0; i < taken.size(); ++i) {
        answered(taken[i], answers ? (*answers)[i] : client::answer_t<std::string>(answers.failure()));
    }
}

/// None for what is not to go there.
std::optional<card_taker_t::taken_t> card_taker_t::look_at(nats::message_t message) {
    const uint64_t card = message.sequence();
    auto queued = read_card(message);
    if (!queued) {
        refuse(message, card, queued.failure().text);
        return std::nullopt;
    }
    const uint64_t digest = digest_of(*queued);
    const auto sent = message.deliveries() > 1 ? was_sent(card, digest) : client::answer_t<bool>(false);
    if (!sent || *sent) {
        sent ? message.acknowledge() : message.give_back(longest_rest);
        return std::nullopt;
    }
    const auto shared = std::make_shared<const nats::message_t>(std::move(message));
    if (!modem_.leases.begin({.card = card, .digest = digest, .reply = queued->reply, .queued = shared})) {
        return std::nullopt;  // it was reported too late, and is here still
    }
    return taken_t{card, std::move(*queued), token_of(modem_.created, card, digest), shared};
}

void card_taker_t::answered(const taken_t& taken, const client::answer_t<std::string>& answer) {
    if (answer) {
        handed_in(taken.id, read_json(*answer));
        return;
    }
    static_cast<void>(modem_.leases.end(taken.id));
    const auto& failure = answer.failure();
    const bool passes = failure.code == client::error_full || failure.code == client::error_not_written;
    if (failure.obstacle == obstacle_t::request && !passes) {
        refuse(*taken.message, taken.id, failure.text);
        return;
    }
    // A service that did not answer may have it all the same, until its lease is over.
    taken.message->give_back(passes ? milliseconds(0) : duration_cast<milliseconds>(lease_time()));
    rest_until_ = clock_t::now() + longest_rest;
    if (failure.code == client::error_not_written) {
        modem_.told(base::priority_t::error, fmt::format("{}: {}", modem_.device, failure.text));
    }
    next_beat_ = clock_t::now();
}

client::answer_t<bool> card_taker_t::was_sent(uint64_t card, uint64_t digest) {
    const auto result = modem_.server.last_in(modem_.names.events(), modem_.names.result(card, result_t::sent));
    if (!result || !*result) {
        return result ? client::answer_t<bool>(false) : result.failure();
    }
    const json_t event = read_json((*result)->data());
    return text(member(event, "message"), "digest") == fmt::format("{:016x}", digest);
}

/// It goes nowhere: told as a card that was set aside, and let go.
void card_taker_t::refuse(const nats::message_t& message, uint64_t card, const std::string& why) {
    const json_t shown{{"id", card},
                       {"state", "set aside"},
                       {"number", message.header(header_to)},
                       {"file", message.header(header_file)},
                       {"octets", message.data().size()},
                       {"reason", {{"text", why}, {"advice", nullptr}}},
                       {"modem", modem_.key}};
    const json_t event{{"time", unix_time()},
                       {"kind", "set aside"},
                       {"text", fmt::format("{}: set aside message {}: {}", modem_.key, card, why)},
                       {"message", shown},
                       {"modem", modem_.key}};
    const auto stored = modem_.server.store(nats::message_t(modem_.names.result(card, result_t::aside), text_of(event)),
                                            fmt::format("refused-{}", card));
    if (stored) {
        message.acknowledge();
    } else {
        message.give_back(longest_rest);
    }
    modem_.told(base::priority_t::warning, fmt::format("{}: card {} of the queue: {}", modem_.device, card, why));
}

// What was over already when it came was handed in before, and its events were told then, or are yet to be.
void card_taker_t::handed_in(uint64_t card, const json_t& message) {
    constexpr double weight = 0.1;
    const uint64_t datagrams = number(member(message, "datagrams"), "total");
    modem_.leases.name(card, number(message, "id"), datagrams);
    datagrams_a_card_ += weight * (static_cast<double>(std::max<uint64_t>(1, datagrams)) - datagrams_a_card_);
    status_.room -= std::min<uint64_t>(1, status_.room);
    const std::string state = text(message, "state");
    if (state == "sent" || state == "set aside") {
        static_cast<void>(settle(modem_, card, state, 0));
    }
}

}  // namespace fleet
