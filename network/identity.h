/// What the network and the equipment know a phone by, all of it made from its number. Pure functions.
#pragma once

#include <string>
#include <string_view>

#include "air/octets.h"

namespace network {

/// Of the network and the SIM: 001-01 is the test network of ITU-T E.212 Annex A.
inline constexpr std::string_view network_code = "00101";

/// IMEI with its check digit, 3GPP TS 23.003 6.2.1.
std::string equipment_identity(std::string_view number);
/// IMSI, 3GPP TS 23.003 2.2.
std::string subscriber_identity(std::string_view number);
/// ICCID with its check digit, ITU-T E.118: 20 digits.
std::string card_identity(std::string_view number);

/// The files of a SIM that hold two of them, 3GPP TS 31.102 4.2.2 and ETSI TS 102 221 13.2.
air::octets_t subscriber_identity_file(std::string_view number);
air::octets_t card_identity_file(std::string_view number);

}  // namespace network
