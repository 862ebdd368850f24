#include "base/safe_text.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace base {

namespace {

uint8_t octet_at(std::string_view text, size_t index) {
    return static_cast<uint8_t>(text[index]);
}

bool is_continuation(std::string_view text, size_t index) {
    return index < text.size() && (octet_at(text, index) & 0xC0) == 0x80;
}

char32_t code_point(std::string_view sequence) {
    constexpr uint8_t lead_bits[] = {0x7F, 0x1F, 0x0F, 0x07};
    char32_t value = octet_at(sequence, 0) & lead_bits[sequence.size() - 1];
    for (size_t index = 1; index < sequence.size(); ++index) {
        value = value << 6 | (octet_at(sequence, index) & 0x3F);
    }
    return value;
}

/// Controls, and what a terminal or a reader could be deceived with: direction marks, line and paragraph separators.
bool is_unsafe(char32_t value) {
    return value < 0x20 || (value >= 0x7F && value < 0xA0) || value == 0x61C || (value >= 0x200B && value <= 0x200F) ||
           (value >= 0x2028 && value <= 0x202E) || (value >= 0x2060 && value <= 0x2069) || value == 0xFEFF;
}

void append_escaped(std::string& result, std::string_view text, size_t length) {
    const uint32_t value = length == 0 ? octet_at(text, 0) : code_point(text.substr(0, length));
    if (length != 0 && !is_unsafe(value)) {
        result += text.substr(0, length);
        return;
    }
    std::array<char, sizeof "\\u{10FFFF}"> escape{};
    const int written = std::snprintf(escape.data(), escape.size(), length <= 1 ? "\\x%02X" : "\\u{%04X}", value);
    result.append(escape.data(), static_cast<size_t>(written));
}

std::string escaped(std::string_view text, bool lines) {
    std::string result;
    while (!text.empty()) {
        const size_t length = utf8_sequence(text);
        if (lines && text.starts_with("\r\n")) {
            text.remove_prefix(1);
            continue;
        }
        if (lines && (text[0] == '\n' || text[0] == '\t')) {
            result += text[0];
        } else {
            append_escaped(result, text, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

}  // namespace

size_t utf8_sequence(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const uint8_t lead = octet_at(text, 0);
    if (lead < 0x80) {
        return 1;
    }
    const size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                          : lead >= 0xE0 && lead <= 0xEF ? 3
                          : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                         : 0;
    for (size_t index = 1; index < length; ++index) {
        if (!is_continuation(text, index)) {
            return 0;
        }
    }
    if (length < 3) {
        return length;
    }
    // Overlong forms, surrogates, and what lies beyond U+10FFFF.
    const uint8_t second = octet_at(text, 1);
    const bool ill_formed = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                            (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
    return ill_formed ? 0 : length;
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = utf8_sequence(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::string escaped(std::string_view text) {
    return escaped(text, false);
}

std::string escaped_lines(std::string_view text) {
    return escaped(text, true);
}

}  // namespace base
