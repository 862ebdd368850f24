/// What stands in a group's streams, as the objects of docs/json.md. Whoever may publish there may have written it: a
/// member that is missing or of another type is as in an object without anything, and nothing is refused.
#pragma once

#include <string>
#include <string_view>

#include "relay/nats.h"
#include "relay/service_json.h"

namespace fleet {

/// A text's object; an empty one when it is none, or too long. What lies too deep in it is left out.
json_t read_object(std::string_view text);

/// A card in the queue: a message of an outbox that waits.
json_t waiting_message(const nats::message_t& card);
/// The message that a result is about. The result's subject says whose it is, and how it fares.
json_t message_of_result(const nats::message_t& result);
/// What a relay answers of the message with this id.
json_t message_of_answer(uint64_t id, const nats::message_t& answer);
/// Whose result a subject is; 0 for none.
uint64_t id_of_result(const std::string& subject);
/// "cancelled", of a message that no relay has.
json_t cancelled_event(const json_t& message);

/// A received card, whose number is its place in the stream.
json_t received_card(const nats::message_t& message);
/// Whatever is in the stream of events.
json_t event_of(const nats::message_t& message);
/// What a relay says of its modem.
json_t modem_of(const nats::entry_t& entry);

}  // namespace fleet
