#include "base/text.h"

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cwctype>
#include <system_error>

namespace base {
namespace {

constexpr char32_t replacement = 0xFFFD;

bool is_high_surrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool is_low_surrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void append_utf8(std::string& text, char32_t point) {
    if (point < 0x80) {
        text += static_cast<char>(point);
        return;
    }
    if (point < 0x800) {
        text += static_cast<char>(0xC0 | point >> 6);
    } else {
        if (point < 0x10000) {
            text += static_cast<char>(0xE0 | point >> 12);
        } else {
            text += static_cast<char>(0xF0 | point >> 18);
            text += static_cast<char>(0x80 | (point >> 12 & 0x3F));
        }
        text += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    }
    text += static_cast<char>(0x80 | (point & 0x3F));
}

void append_utf16(std::u16string& text, char32_t point) {
    if (point >= 0x10000) {
        text += static_cast<char16_t>(0xD7C0 + (point >> 10));
        text += static_cast<char16_t>(0xDC00 | (point & 0x3FF));
    } else {
        text += static_cast<char16_t>(point);
    }
}

/// What a lead octet asks for: the number of octets that follow and the interval of the first of them, which is where
/// overlong forms, surrogates and values above U+10FFFF are told apart (The Unicode Standard, table 3-7).
struct lead_t {
    size_t following;
    uint8_t first_low;
    uint8_t first_high;
};

lead_t lead_of(uint8_t octet) {
    if (octet >= 0xC2 && octet <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (octet >= 0xE0 && octet <= 0xEF) {
        return {2, static_cast<uint8_t>(octet == 0xE0 ? 0xA0 : 0x80),
                static_cast<uint8_t>(octet == 0xED ? 0x9F : 0xBF)};
    }
    if (octet >= 0xF0 && octet <= 0xF4) {
        return {3, static_cast<uint8_t>(octet == 0xF0 ? 0x90 : 0x80),
                static_cast<uint8_t>(octet == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

/// How much of a text, in either form, is ASCII up to the first character that is not: most texts are all of it.
template <typename unit_t>
ptrdiff_t ascii_length(std::basic_string_view<unit_t> text) {
    const auto is_other = [](unit_t unit) { return (unit & ~unit_t{0x7F}) != 0; };
    return std::find_if(text.begin(), text.end(), is_other) - text.begin();
}

}  // namespace

std::string to_utf8(std::u16string_view text) {
    std::string result(text.begin(), text.begin() + ascii_length(text));
    for (size_t i = result.size(); i < text.size(); ++i) {
        char32_t point = text[i];
        if (is_high_surrogate(point) && i + 1 < text.size() && is_low_surrogate(text[i + 1])) {
            point = 0x10000 + ((point & 0x3FF) << 10 | (text[++i] & 0x3FF));
        } else if (is_high_surrogate(point) || is_low_surrogate(point)) {
            point = replacement;
        }
        append_utf8(result, point);
    }
    return result;
}

std::u16string to_utf16(std::string_view text) {
    std::u16string result(text.begin(), text.begin() + ascii_length(text));
    text.remove_prefix(result.size());
    while (!text.empty()) {
        const code_point_t first = first_code_point(text);
        append_utf16(result, first.value);
        text.remove_prefix(first.length);
    }
    return result;
}

code_point_t first_code_point(std::string_view text) {
    const auto octet = static_cast<uint8_t>(text.front());
    if (octet < 0x80) {
        return {octet, 1, true};
    }
    const lead_t lead = lead_of(octet);
    char32_t value = octet & (0x3F >> lead.following);
    for (size_t i = 1; i <= lead.following; ++i) {
        const uint8_t low = i == 1 ? lead.first_low : 0x80;
        const uint8_t high = i == 1 ? lead.first_high : 0xBF;
        const auto next = static_cast<uint8_t>(i < text.size() ? text[i] : 0);
        if (next < low || next > high) {
            return {replacement, i, false};
        }
        value = value << 6 | (next & 0x3F);
    }
    return lead.following == 0 ? code_point_t{replacement, 1, false} : code_point_t{value, lead.following + 1, true};
}

bool is_utf8(std::string_view text) {
    text.remove_prefix(static_cast<size_t>(ascii_length(text)));
    while (!text.empty()) {
        const code_point_t first = first_code_point(text);
        if (!first.well_formed) {
            return false;
        }
        text.remove_prefix(first.length);
    }
    return true;
}

std::string folded(std::string_view text) {
    static locale_t const letters = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);  // of the C library itself
    std::u16string units = to_utf16(text);
    for (char16_t& unit : units) {
        const wint_t lower = letters != nullptr ? towlower_l(unit, letters) : towlower(unit);
        unit = static_cast<char16_t>(lower);
    }
    return to_utf8(units);
}

std::string errno_text(int error) {
    return std::generic_category().message(error);
}

}  // namespace base
