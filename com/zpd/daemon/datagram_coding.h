/// What a datagram looks like: its header on the air, and the message that the radio gets. No state is shared; what
/// goes wrong is logged.
#pragma once

#include <ril.h>

#include <cstddef>
#include <cstdint>

#include "com/miscio/octets.h"
#include "com/zpd/daemon/message.h"

/// The header of datagram number `index` (from 0) of `amount`, encoded: the concatenation element first, then the port.
octet_string_t encoded_header(uint32_t id, size_t index, size_t amount, bool use_long_ie);

/// A GSM message. False when the number or the user data is too long.
[[nodiscard]] bool fill_gsm_message(const datagram_t& datagram, RILMESSAGE& message);
