/// Octets as hexadecimal text.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace base {

/// Upper-case digits, two an octet.
std::string to_hex(std::span<const uint8_t> octets);
void append_hex(std::string& text, std::span<const uint8_t> octets);
/// Digits of either case; none for an odd count or any other character.
std::optional<std::vector<uint8_t>> from_hex(std::string_view text);

}  // namespace base
