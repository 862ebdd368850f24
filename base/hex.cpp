#include "base/hex.h"

#include <array>
#include <cstring>

namespace base {
namespace {

constexpr char digits[] = "0123456789ABCDEF";

// The two digits of each octet.
constexpr auto digits_of = [] {
    std::array<char, 512> pairs{};
    for (size_t octet = 0; octet < 256; ++octet) {
        pairs[2 * octet] = digits[octet >> 4];
        pairs[2 * octet + 1] = digits[octet & 0xF];
    }
    return pairs;
}();

constexpr uint8_t no_digit = 0xFF;
constexpr auto value_of = [] {
    std::array<uint8_t, 256> values{};
    values.fill(no_digit);
    for (uint8_t value = 0; value < 16; ++value) {
        values[static_cast<uint8_t>(digits[value])] = value;
        values[static_cast<uint8_t>("0123456789abcdef"[value])] = value;
    }
    return values;
}();

}  // namespace

std::string to_hex(std::span<const uint8_t> octets) {
    std::string text;
    append_hex(text, octets);
    return text;
}

void append_hex(std::string& text, std::span<const uint8_t> octets) {
    const size_t begin = text.size();
    text.resize(begin + 2 * octets.size());
    char* next = text.data() + begin;
    for (const uint8_t octet : octets) {
        memcpy(next, &digits_of[size_t{2} * octet], 2);
        next += 2;
    }
}

std::optional<std::vector<uint8_t>> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    std::optional<std::vector<uint8_t>> octets(text.size() / 2);
    const char* next = text.data();
    uint8_t seen = 0;
    for (uint8_t& octet : *octets) {
        const uint8_t high = value_of[static_cast<uint8_t>(next[0])];
        const uint8_t low = value_of[static_cast<uint8_t>(next[1])];
        octet = static_cast<uint8_t>(high << 4 | low);
        seen |= high | low;
        next += 2;
    }
    if (seen > 0xF) {
        octets.reset();
    }
    return octets;
}

}  // namespace base
