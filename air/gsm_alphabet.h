/// The GSM 7 bit default alphabet and its extension table, 3GPP TS 23.038 6.2.1, to and from UTF-8, and the packing of
/// septets into octets (6.1.2.1). Pure functions. Every sequence of septets has its own text: an escape that begins no
/// character of the extension table is U+001B.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace air::gsm_alphabet {

/// `septets` values of 0..127.
std::string to_utf8(std::span<const uint8_t> septets);
/// None when the text holds a character that neither table has.
std::optional<std::vector<uint8_t>> from_utf8(std::string_view text);

/// The first bit of the first septet is the lowest of the first octet. Unpack needs count * 7 bits of octets; unused
/// high bits of the last octet of a pack are 0.
std::vector<uint8_t> unpack(std::span<const uint8_t> octets, size_t count);
std::vector<uint8_t> pack(std::span<const uint8_t> septets);

}  // namespace air::gsm_alphabet
