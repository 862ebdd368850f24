/// A message as AT commands have it, <pdu> of 3GPP TS 27.005 3.1: hexadecimal digits, before a TPDU those of the
/// service centre's address. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "network/air_message.h"
#include "network/faults.h"

namespace network {

/// What a host is told of a message.
struct told_pdu_t {
    size_t length = 0;
    std::string pdu;
};
/// Deliveries on GSM have the form, all others the usual one.
told_pdu_t told_pdu(const air_message_t& message, pdu_form_t form);

/// None when the text is no PDU with a message of so many octets.
std::optional<air_message_t> message_of_pdu(std::string_view text, air_form_t form, size_t length);

}  // namespace network
