/// What modems offer of the message service's settings, as they answer to =?, and the check of a value against it.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace network {

/// A command with an empty answer is one that the modem does not know.
struct capabilities_t {
    std::string_view name;
    std::string_view service;        // +CSMS, 3GPP TS 27.005 3.2.1
    std::string_view memories;       // +CPMS, 3.2.2
    std::string_view indications;    // +CNMI, 3.4.1
    std::string_view more_messages;  // +CMMS, 3.5.6
};

/// A host may ask for broadcasts (<bm>) and status reports (<ds>), as many do unasked: the network has neither to tell.
inline constexpr capabilities_t full_capabilities = {
    "full", "(0,1)", R"(("ME","SM","MT"),("ME","SM","MT"),("ME","SM","MT"))", "(0-2),(0-2),(0-3),(0-2),(0,1)", "(0-2)"};

/// The full ones, and those of more modest modems.
std::span<const capabilities_t> capability_tables();

/// Whether the list of the parameter at `index` has the value: a number, or a text in its quotes.
bool offers(std::string_view offered, size_t index, std::string_view value);
bool offers(std::string_view offered, size_t index, unsigned value);

}  // namespace network
