/// A card in the queue, as a message: its octets, and headers (relay/fleet_names.h).
#pragma once

#include <cstdint>
#include <string>

#include "relay/fleet_names.h"

namespace fleet {

struct queued_card_t {
    std::string octets;
    bool is_utf8 = true;
    bool long_reference = false;
    std::string number;
    std::string file;
    uint64_t expires = 0;  // seconds since 1970; 0 for never
    std::string reply;     // a subject of who handed it in; empty for none
};

/// Of whoever may write to the queue, so it is looked at as a stranger's. None, and why. What the service itself checks
/// (the number, the size) is left to it.
client::answer_t<queued_card_t> read_card(const nats::message_t& message);

/// Of its number and octets, the same on all machines. Not against who means harm.
uint64_t digest_of(const queued_card_t& card);

nats::message_t write_card(const std::string& subject, const queued_card_t& card);

}  // namespace fleet
