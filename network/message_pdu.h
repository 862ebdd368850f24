/// A message as AT commands have it, <pdu> of 3GPP TS 27.005 3.1: hexadecimal digits, before a TPDU those of the
/// service centre's address. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "network/air_message.h"

namespace network {

std::string pdu_text(const air_message_t& message);

/// None when the text is no PDU with a message of so many octets.
std::optional<air_message_t> message_of_pdu(std::string_view text, air_form_t form, size_t length);

}  // namespace network
