/// A message of the outbox as clients and events have it. docs/json.md shows the objects.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "service/outbox.h"

nlohmann::ordered_json message_json(const outbox_message_t& message);
/// With what is known of it at the moment.
nlohmann::ordered_json message_json(const outbox_t::view_t& view);

/// "sent message 12 to +12025550100: Ann Placeholder (7 datagrams)"
std::string event_text(const outbox_message_t& message, const char* kind);
