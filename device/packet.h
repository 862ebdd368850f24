/// Packets of the device socket (device_socket.h), put together and taken apart.
#pragma once

#include <cstdint>
#include <optional>

#include "base/octets.h"

namespace device {

using base::octets_t;
using base::octets_view_t;

/// `input` points into the packet.
struct request_t {
    uint32_t code = 0;
    uint32_t output_capacity = 0;
    octets_view_t input;
};
octets_t encode(const request_t& request);
/// None for a packet that is too short or too long, or asks for more output than allowed.
std::optional<request_t> decode_request(octets_view_t packet);

struct reply_t {
    bool result = false;
    uint32_t last_error = 0;
    octets_t output;
};
octets_t encode(const reply_t& reply);
/// None for a packet that is too short, or whose count disagrees with its length.
std::optional<reply_t> decode_reply(octets_view_t packet);

}  // namespace device
