/// The requests about received cards: inbox_list, inbox_octets and inbox_remove of device/service_requests.h.
#pragma once

#include <cstdint>

#include "device/packet.h"
#include "service/inbox.h"

/// Answers one of them, in at most `capacity` octets. Any thread. The answer to inbox_list has, beside the cards and
/// "more", "unnumbered" (why cards have no numbers) and "errors" (what could not be read), where it is so.
device::reply_t answer_inbox_request(inbox_t& inbox, uint32_t code, device::octets_view_t input, uint32_t capacity);
