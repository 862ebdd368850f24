#include "network/character_set.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "air/gsm_alphabet.h"
#include "base/hex.h"
#include "base/text.h"

namespace network {

namespace {

constexpr std::string_view names[] = {"GSM", "IRA", "UCS2"};  // by character_set_t
constexpr unsigned char first_beyond_7_bits = 0x80;

bool is_7bit(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char c) { return c < first_beyond_7_bits; });
}

/// In GSM or IRA.
std::string character_to_host(std::string_view character, character_set_t set) {
    if (set == character_set_t::ira) {
        return is_7bit(character) ? std::string(character) : "?";
    }
    const auto septets = air::gsm_alphabet::from_utf8(character);
    return septets ? std::string(septets->begin(), septets->end()) : "?";
}

}  // namespace

std::optional<character_set_t> character_set_named(std::string_view name) {
    const auto* const known = std::ranges::find(names, name);
    return known == std::end(names) ? std::nullopt : std::optional(static_cast<character_set_t>(known - names));
}

std::string_view name_of(character_set_t set) {
    return names[static_cast<size_t>(set)];
}

std::string to_host(std::string_view text, character_set_t set) {
    std::string octets;
    if (set == character_set_t::ucs2) {
        for (const char16_t unit : base::to_utf16(text)) {
            octets += fmt::format("{:04X}", static_cast<unsigned>(unit));
        }
        return octets;
    }
    while (!text.empty()) {
        const size_t length = base::first_code_point(text).length;
        octets += character_to_host(text.substr(0, length), set);
        text.remove_prefix(length);
    }
    return octets;
}

std::optional<std::string> from_host(std::string_view text, character_set_t set) {
    if (set == character_set_t::ucs2) {
        const auto octets = base::from_hex(text);
        if (!octets || octets->size() % 2 != 0) {
            return std::nullopt;
        }
        std::u16string units;
        for (size_t i = 0; i < octets->size(); i += 2) {
            units += static_cast<char16_t>((*octets)[i] << 8 | (*octets)[i + 1]);
        }
        return base::to_utf8(units);
    }
    if (!is_7bit(text)) {
        return std::nullopt;
    }
    return set == character_set_t::ira ? std::string(text)
                                       : air::gsm_alphabet::to_utf8(std::vector<uint8_t>(text.begin(), text.end()));
}

}  // namespace network
