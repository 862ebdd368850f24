// What has happened in a fleet, and the cards that it received: both are in the stream of events.
#include <fmt/format.h>

#include <algorithm>

#include "relay/fleet.h"
#include "relay/fleet_json.h"

namespace fleet {

using client::answer_t;
using client::failure_t;
using client::obstacle_t;
using nats::message_t;
using nats::milliseconds;

namespace {

constexpr size_t most_of_a_page = 100;

}  // namespace

/// The first one after this one that is not older than the time: times rise with the numbers.
answer_t<uint64_t> fleet_t::first_event(uint64_t after, uint64_t since) {
    const auto stream = connection_->stream(names_.events());
    if (!stream) {
        return explained(stream.failure());
    }
    uint64_t low = after + 1;
    uint64_t high = *stream ? std::max((*stream)->last + 1, low) : low;
    while (since != 0 && low < high) {
        const uint64_t middle = low + (high - low) / 2;
        const auto event = connection_->next_in(names_.events(), names_.all(), middle);
        if (!event) {
            return explained(event.failure());
        }
        if (!*event || (*event)->time() >= static_cast<int64_t>(since)) {
            high = middle;
        } else {
            low = (*event)->sequence() + 1;
        }
    }
    return low;
}

answer_t<client::done_t> fleet_t::follow_events(uint64_t after, uint64_t since) {
    if (followed_ && followed_->after == after) {
        return client::done_t{};
    }
    const auto first = first_event(after, since);
    if (!first) {
        return first.failure();
    }
    auto events = connection_->follow(names_.events(), names_.all(), *first);
    if (!events) {
        return explained(events.failure());
    }
    followed_.emplace(followed_t{std::move(*events), after, *first - 1});
    return client::done_t{};
}

answer_t<std::string> fleet_t::events(uint64_t after, uint64_t since, uint32_t wait) {
    if (const auto found = look_for_group(); !found) {
        return found.failure();
    }
    const auto last = connection_->last_in(names_.events(), names_.all());
    const auto follows = last ? follow_events(after, since) : explained(last.failure());
    if (!follows) {
        return follows.failure();
    }
    const uint64_t end = *last ? (*last)->sequence() : 0;
    json_t events = json_t::array();
    while (events.size() < most_of_a_page) {
        const bool is_there = followed_->position < end;
        const milliseconds patience(is_there ? nats::longest_call.count()
                                             : (events.empty() ? std::min(wait, client::longest_wait) : 0));
        const auto event = followed_->events.next(patience);
        if (!event || !*event) {
            if (!event || is_there) {  // the server has forgotten who follows
                followed_.reset();
            }
            if (!event && events.empty()) {
                return explained(event.failure());
            }
            break;
        }
        followed_->position = followed_->after = (*event)->sequence();
        events.push_back(event_of(**event));
    }
    const bool more = events.size() == most_of_a_page;
    return text_of({{"events", std::move(events)}, {"more", more}});
}

answer_t<std::string> fleet_t::inbox_list(uint64_t after) {
    if (const auto found = look_for_group(); !found) {
        return found.failure();
    }
    json_t cards = json_t::array();
    while (cards.size() < most_of_a_page) {
        const auto card = connection_->next_in(names_.events(), names_.all_received(), after + 1);
        if (!card) {
            return explained(card.failure());
        }
        if (!*card) {
            break;
        }
        after = (*card)->sequence();
        cards.push_back(received_card(**card));
    }
    const bool more = cards.size() == most_of_a_page;
    return text_of({{"cards", std::move(cards)}, {"more", more}});
}

answer_t<message_t> fleet_t::received(uint64_t number) {
    if (const auto found = look_for_group(); !found) {
        return found.failure();
    }
    auto card = connection_->next_in(names_.events(), names_.all_received(), number);
    if (!card) {
        return explained(card.failure());
    }
    if (!*card || (*card)->sequence() != number) {
        return failure_t{client::error_not_found, fmt::format("there is no card {}", number), obstacle_t::request};
    }
    return std::move(**card);
}

answer_t<std::string> fleet_t::inbox_octets(uint64_t number) {
    const auto card = received(number);
    return card ? answer_t<std::string>(std::string(card->data())) : card.failure();
}

// Only a card may go: events are the server's to forget.
answer_t<client::done_t> fleet_t::inbox_remove(uint64_t number) {
    const auto card = received(number);
    if (!card) {
        return card.failure();
    }
    const auto removed = connection_->remove(names_.events(), number);
    return removed ? answer_t<client::done_t>(client::done_t{}) : explained(removed.failure());
}

}  // namespace fleet
