#include "base/hex.h"

namespace base {
namespace {

std::optional<uint8_t> digit_value(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return std::nullopt;
}

}  // namespace

std::string to_hex(std::span<const uint8_t> octets) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(octets.size() * 2);
    for (const uint8_t octet : octets) {
        text += digits[octet >> 4];
        text += digits[octet & 0xF];
    }
    return text;
}

std::optional<std::vector<uint8_t>> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    std::vector<uint8_t> octets;
    octets.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const auto high = digit_value(text[i]);
        const auto low = digit_value(text[i + 1]);
        if (!high || !low) {
            return std::nullopt;
        }
        octets.push_back(static_cast<uint8_t>(*high << 4 | *low));
    }
    return octets;
}

}  // namespace base
