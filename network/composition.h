/// Messages as phones submit them, made of what people have at hand: a text, or octets for an application port. What is
/// too long for one datagram is cut into several with an 8-bit concatenation reference (3GPP TS 23.040 9.2.3.24.1).
/// Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "air/tpdu.h"

namespace network {

/// Application ports, 3GPP TS 23.040 9.2.3.24.4.
struct ports_t {
    uint16_t destination;
    uint16_t originator;
};
inline constexpr ports_t card_ports = {9204, 0};
/// Connectionless push, WAP-259-WDP B.
inline constexpr ports_t push_ports = {2948, 9200};

/// The SMS-SUBMITs of a message, in the order of its parts.
using composed_t = std::vector<air::octets_t>;

// `destination` is a number as people write it, "+" and digits. None when it is no number, and when the message is
// empty or takes more than 255 parts.

/// In the GSM default alphabet when that has all of it, else in UCS2. `text` is UTF-8.
composed_t compose_text(std::string_view text, std::string_view destination, uint8_t reference);
/// 8-bit data. The octets pass as they are.
composed_t compose_octets(air::octets_view_t octets, const ports_t& ports, std::string_view destination,
                          uint8_t reference);

/// By its type (9.2.3.1): what a phone submits. All else is for a phone to get.
bool is_submission(air::octets_view_t tpdu);
/// The SMS-SUBMIT for another destination, for its own when that is empty. None when it is malformed.
std::optional<air::octets_t> readdressed(air::octets_view_t tpdu, std::string_view destination);

}  // namespace network
