#include "relay/fleet_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

namespace fleet {

namespace {

using client::answer_t;
using client::done_t;
using client::failure_t;
using client::obstacle_t;

constexpr int64_t second = 1'000'000'000;  // nanoseconds, as streams count
constexpr int64_t day = 86'400 * second;
constexpr int64_t hour = 3'600 * second;

bool is_name_octet(char octet) {
    return (octet >= 'a' && octet <= 'z') || (octet >= 'A' && octet <= 'Z') || (octet >= '0' && octet <= '9') ||
           octet == '-' || octet == '_';
}

std::string digits_of(std::string_view number) {
    return std::string(number.substr(number.starts_with('+') ? 1 : 0));
}

std::string name_of(std::string_view text) {
    std::string name(text);
    std::ranges::replace_if(
        name, [](char octet) { return !is_name_octet(octet); }, '_');
    return name;
}

}  // namespace

bool is_group(std::string_view name) {
    constexpr size_t longest = 32;
    return !name.empty() && name.size() <= longest && std::ranges::all_of(name, is_name_octet);
}

bool is_url(std::string_view device) {
    return device.starts_with("nats://") || device.starts_with("tls://");
}

answer_t<address_t> read_url(std::string_view url) {
    const std::string form = "; it is nats://[USER:PASSWORD@]HOST[:PORT][/GROUP]";
    if (!is_url(url)) {
        return failure_t{0, fmt::format("{} is no server's address{}", nats::shown_url(url), form),
                         obstacle_t::request};
    }
    const size_t begin = url.find("://") + 3;
    const size_t slash = url.find('/', begin);
    const std::string_view server = url.substr(0, slash);
    const std::string_view group = slash == std::string_view::npos ? "" : url.substr(slash + 1);
    if (server.size() == begin || server.ends_with('@')) {
        return failure_t{0, fmt::format("{} names no server{}", nats::shown_url(url), form), obstacle_t::request};
    }
    if (!group.empty() && !is_group(group)) {
        return failure_t{0, fmt::format("'{}' is no group of modems: 1 to 32 letters, digits, - and _", group),
                         obstacle_t::request};
    }
    return address_t{nats::with_environment({std::string(server), "", "", "", ""}),
                     std::string(group.empty() ? usual_group : group)};
}

const char* words_of(result_t result) {
    static constexpr std::array words{"queued", "sent", "aside", "cancelled"};
    return words.at(static_cast<size_t>(result));
}

std::string names_t::send(std::string_view from) const {
    return prefix() + (from.empty() ? "send.any" : "send.from." + digits_of(from));
}

std::string names_t::consumer(std::string_view from) {
    return from.empty() ? "any" : "from-" + digits_of(from);
}

std::string names_t::consumer_of_subject(std::string_view subject) {
    const std::string_view last = subject.substr(subject.rfind('.') + 1);
    return last == "any" ? std::string(last) : fmt::format("from-{}", last);
}

std::string names_t::result(uint64_t id, result_t result) const {
    return fmt::format("{}result.{}.{}", prefix(), id, words_of(result));
}

std::string modem_key(std::string_view machine, std::string_view device) {
    return name_of(machine) + "." + name_of(device);
}

namespace {

// Results and received cards are for who was away some days; the server's disk is not theirs alone.
constexpr int64_t events_age = 7 * day;
constexpr int64_t tokens_age = 2 * hour;  // one that is handed in again after that is another

/// What all streams of a group have alike, while the names and subjects are there.
jsStreamConfig config_of(const std::string& name, std::vector<const char*>& subjects, const layout_t& layout) {
    jsStreamConfig config;
    static_cast<void>(jsStreamConfig_Init(&config));
    config.Name = name.c_str();
    config.Subjects = subjects.data();
    config.SubjectsLen = static_cast<int>(subjects.size());
    config.Replicas = layout.replicas;
    config.Duplicates = tokens_age;
    config.AllowDirect = true;
    return config;
}

answer_t<done_t> make_cards(nats::connection_t& connection, const names_t& names, const layout_t& layout) {
    const std::string name = names.cards();
    const std::string subject = names.all_sent();
    std::vector<const char*> subjects{subject.c_str()};
    jsStreamConfig config = config_of(name, subjects, layout);
    config.Retention = js_WorkQueuePolicy;
    config.Discard = js_DiscardNew;
    config.MaxMsgs = layout.most_cards;
    return connection.make_stream(config);
}

answer_t<done_t> make_events(nats::connection_t& connection, const names_t& names, const layout_t& layout) {
    const std::string name = names.events();
    const std::string results = names.all_results();
    const std::string received = names.all_received();
    const std::string modems = names.all_modems();
    std::vector<const char*> subjects{results.c_str(), received.c_str(), modems.c_str()};
    jsStreamConfig config = config_of(name, subjects, layout);
    config.MaxAge = events_age;
    return connection.make_stream(config);
}

// As the library makes a bucket, but that its configuration can change.
answer_t<done_t> make_modems(nats::connection_t& connection, const names_t& names, const layout_t& layout) {
    const std::string name = "KV_" + names.modems();
    const std::string subject = "$KV." + names.modems() + ".>";
    std::vector<const char*> subjects{subject.c_str()};
    jsStreamConfig config = config_of(name, subjects, layout);
    config.MaxMsgsPerSubject = 1;
    config.MaxAge = layout.ack_wait.count() * second;
    config.Duplicates = config.MaxAge;
    config.Discard = js_DiscardNew;
    config.AllowRollup = true;
    config.DenyDelete = true;
    return connection.make_stream(config);
}

answer_t<done_t> make_consumer(nats::connection_t& connection, const names_t& names, const std::string& from,
                               std::chrono::seconds ack_wait) {
    const std::string name = names_t::consumer(from);
    const std::string subject = names.send(from);
    constexpr int64_t most_taken = 100'000;
    jsConsumerConfig config;
    static_cast<void>(jsConsumerConfig_Init(&config));
    config.Name = name.c_str();  // asked for by name and filter, which a server can permit one by one
    config.Durable = name.c_str();
    config.FilterSubject = subject.c_str();
    config.AckPolicy = js_AckExplicit;
    config.AckWait = ack_wait.count() * second;
    config.MaxAckPending = most_taken;
    return connection.make_consumer(names.cards(), config);
}

// A server that is killed may not have written yet that a card was acknowledged.
answer_t<done_t> remove_acknowledged(nats::connection_t& connection, const names_t& names) {
    const auto consumers = connection.consumers(names.cards());
    if (!consumers) {
        return consumers.failure();
    }
    for (const nats::consumer_t& consumer : *consumers) {
        if (consumer.acknowledged != 0) {
            if (auto purged = connection.purge(names.cards(), consumer.subject, consumer.acknowledged); !purged) {
                return purged;
            }
        }
    }
    return done_t{};
}

}  // namespace

answer_t<done_t> make(nats::connection_t& connection, const names_t& names, const std::optional<layout_t>& layout) {
    const auto found = connection.stream(names.cards());
    if (!found) {
        return found.failure();
    }
    if (*found && !layout) {
        return done_t{};
    }
    const layout_t wanted = layout.value_or(layout_t{});
    for (const auto& make_one : {make_events, make_modems, make_cards}) {  // who finds the cards finds the others
        if (auto made = make_one(connection, names, wanted); !made) {
            return made;
        }
    }
    auto made = make_consumer(connection, names, "", wanted.ack_wait);
    return made && layout ? remove_acknowledged(connection, names) : made;
}

answer_t<nats::consumer_t> consumer_of(nats::connection_t& connection, const names_t& names, const std::string& from) {
    auto found = connection.consumer(names.cards(), names_t::consumer(from));
    if (!found) {
        return found.failure();
    }
    if (!*found) {
        const auto any = from.empty() ? found : connection.consumer(names.cards(), names_t::consumer(""));
        const auto wait =
            any && *any ? std::chrono::duration_cast<std::chrono::seconds>((*any)->ack_wait) : layout_t{}.ack_wait;
        if (const auto made = make_consumer(connection, names, from, wait); !made) {
            return made.failure();
        }
        found = connection.consumer(names.cards(), names_t::consumer(from));
    }
    if (!found || !*found) {
        return found ? failure_t{0, "the consumer of the cards is gone", obstacle_t::no_answer} : found.failure();
    }
    return **found;
}

}  // namespace fleet
