/// What a datagram looks like: its header on the air, and the message that the radio gets. No state is shared; what
/// goes wrong is logged.
#pragma once

#include <ril.h>

#include <cstddef>
#include <cstdint>

#include "com/miscio/octets.h"
#include "com/sms/sms_udh.h"
#include "com/zpd/daemon/message.h"

/// The header of the datagrams of a message: the concatenation element first, when there are several, then the port.
class datagram_header_t {
  public:
    datagram_header_t(uint32_t message_id, size_t datagrams, bool use_long_ie);
    /// That of datagram number `index` (from 0), encoded.
    octet_string_t encoded(size_t index);

  private:
    const uint32_t id;
    const uint32_t amount;
    sms_udh_t header;
    sms_udh_ie_concat_t* concatenation = nullptr;  // of the header; none for a single datagram
    sms_udh_ie_appport_t* port = nullptr;          // likewise
    octet_string_t octets;                         // of the first; the others differ in the ordinal
};

/// A GSM message. False when the number or the user data is too long.
[[nodiscard]] bool fill_gsm_message(const datagram_t& datagram, RILMESSAGE& message);
