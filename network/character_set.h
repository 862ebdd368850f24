/// The character set between host and modem, +CSCS of 3GPP TS 27.007 5.5. Pure functions; inside the modem text is
/// UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace network {

enum class character_set_t {
    gsm,   // a septet of the GSM default alphabet an octet
    ira,   // ASCII
    ucs2,  // four hexadecimal digits for each 16-bit unit
};

/// "GSM", "IRA" or "UCS2".
std::optional<character_set_t> character_set_named(std::string_view name);
std::string_view name_of(character_set_t set);

/// As the host reads it; "?" for what the set does not have.
std::string to_host(std::string_view text, character_set_t set);
/// None when the host's text is not one of the set.
std::optional<std::string> from_host(std::string_view text, character_set_t set);

}  // namespace network
