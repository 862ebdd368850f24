#include "air/gsm_alphabet.h"

#include <array>

namespace air::gsm_alphabet {

namespace {

constexpr uint8_t escape = 0x1B;

// One character a septet, 0x00 first.
constexpr std::array<std::string_view, 128> default_table = {
    "@", "£", "$",  "¥", "è", "é", "ù", "ì", "ò", "Ç", "\n", "Ø",    "ø", "\r", "Å", "å",  // 0x00
    "Δ", "_", "Φ",  "Γ", "Λ", "Ω", "Π", "Ψ", "Σ", "Θ", "Ξ",  "\x1B", "Æ", "æ",  "ß", "É",  // 0x10
    " ", "!", "\"", "#", "¤", "%", "&", "'", "(", ")", "*",  "+",    ",", "-",  ".", "/",  // 0x20
    "0", "1", "2",  "3", "4", "5", "6", "7", "8", "9", ":",  ";",    "<", "=",  ">", "?",  // 0x30
    "¡", "A", "B",  "C", "D", "E", "F", "G", "H", "I", "J",  "K",    "L", "M",  "N", "O",  // 0x40
    "P", "Q", "R",  "S", "T", "U", "V", "W", "X", "Y", "Z",  "Ä",    "Ö", "Ñ",  "Ü", "§",  // 0x50
    "¿", "a", "b",  "c", "d", "e", "f", "g", "h", "i", "j",  "k",    "l", "m",  "n", "o",  // 0x60
    "p", "q", "r",  "s", "t", "u", "v", "w", "x", "y", "z",  "ä",    "ö", "ñ",  "ü", "à",  // 0x70
};

struct extension_t {
    uint8_t septet;  // after the escape
    std::string_view text;
};
constexpr extension_t extension_table[] = {
    {0x0A, "\f"}, {0x14, "^"}, {0x28, "{"}, {0x29, "}"}, {0x2F, "\\"},
    {0x3C, "["},  {0x3D, "~"}, {0x3E, "]"}, {0x40, "|"}, {0x65, "€"},
};

std::string_view extended(uint8_t septet) {
    for (const extension_t& row : extension_table) {
        if (row.septet == septet) {
            return row.text;
        }
    }
    return {};
}

// Appends the septets of the character that `text` begins with; returns its length in octets, 0 when no table has it.
size_t append_character(std::string_view text, std::vector<uint8_t>& septets) {
    for (size_t i = 0; i < default_table.size(); ++i) {
        if (text.starts_with(default_table[i])) {
            septets.push_back(static_cast<uint8_t>(i));
            return default_table[i].size();
        }
    }
    for (const extension_t& row : extension_table) {
        if (text.starts_with(row.text)) {
            septets.insert(septets.end(), {escape, row.septet});
            return row.text.size();
        }
    }
    return 0;
}

}  // namespace

std::string to_utf8(std::span<const uint8_t> septets) {
    std::string text;
    for (size_t i = 0; i < septets.size(); ++i) {
        const bool pair = septets[i] == escape && i + 1 < septets.size();
        const std::string_view character = pair ? extended(septets[i + 1]) : std::string_view{};
        if (character.empty()) {
            text += default_table[septets[i] & 0x7F];
        } else {
            text += character;
            ++i;
        }
    }
    return text;
}

std::optional<std::vector<uint8_t>> from_utf8(std::string_view text) {
    std::vector<uint8_t> septets;
    while (!text.empty()) {
        const size_t length = append_character(text, septets);
        if (length == 0) {
            return std::nullopt;
        }
        text.remove_prefix(length);
    }
    return septets;
}

std::vector<uint8_t> unpack(std::span<const uint8_t> octets, size_t count) {
    std::vector<uint8_t> septets(count);
    for (size_t bit = 0; bit < count * 7; ++bit) {
        const unsigned value = octets[bit / 8] >> (bit % 8) & 1U;
        septets[bit / 7] = static_cast<uint8_t>(septets[bit / 7] | value << (bit % 7));
    }
    return septets;
}

std::vector<uint8_t> pack(std::span<const uint8_t> septets) {
    std::vector<uint8_t> octets((septets.size() * 7 + 7) / 8);
    for (size_t bit = 0; bit < septets.size() * 7; ++bit) {
        const unsigned value = septets[bit / 7] >> (bit % 7) & 1U;
        octets[bit / 8] = static_cast<uint8_t>(octets[bit / 8] | value << (bit % 8));
    }
    return octets;
}

}  // namespace air::gsm_alphabet
