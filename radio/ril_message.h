/// RILMESSAGE to and from TPDUs: what the driver hands to the radio and what it is handed. Pure functions.
#pragma once

#include <ril.h>

#include <optional>

#include "radio/tpdu.h"

namespace radio {

/// The application port of contact cards.
inline constexpr uint16_t card_port = 9204;

/// How long the service centre keeps a message for a phone that cannot be reached, as a relative validity period
/// (3GPP TS 23.040 9.2.3.12.1: 166 and the number of days): seven days outlast a phone left at home over a holiday. The
/// driver hands over the clock time of the submission instead, by which every message would be too old on arrival.
inline constexpr uint8_t validity_seven_days = 166 + 7;

/// The SMS-SUBMIT of an outgoing message. None when it is none that can go on the air: of a wrong size or type, a
/// destination that is no number, more than 140 octets of user data, or coded in the 7-bit alphabet (the message
/// carries octets).
std::optional<tpdu::octets_t> submit_of(const RILMESSAGE& message);

/// True for 8-bit data whose header addresses the port of contact cards.
bool is_card_datagram(const tpdu::deliver_t& deliver);
/// A card datagram as the driver expects it. The time is left out when it is no date.
RILMESSAGE message_of(const tpdu::deliver_t& deliver);

}  // namespace radio
