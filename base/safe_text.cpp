#include "base/safe_text.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "base/text.h"

namespace base {

namespace {

/// Controls, and what a terminal or a reader could be deceived with: direction marks, line and paragraph separators.
bool is_unsafe(char32_t value) {
    return value < 0x20 || (value >= 0x7F && value < 0xA0) || value == 0x61C || (value >= 0x200B && value <= 0x200F) ||
           (value >= 0x2028 && value <= 0x202E) || (value >= 0x2060 && value <= 0x2069) || value == 0xFEFF;
}

void append_escape(std::string& result, const char* format, uint32_t value) {
    std::array<char, sizeof "\\u{10FFFF}"> escape{};
    const int written = std::snprintf(escape.data(), escape.size(), format, value);
    result.append(escape.data(), static_cast<size_t>(written));
}

/// Appends what stands for the front of the text; returns how much of it that was.
size_t append_escaped(std::string& result, std::string_view text) {
    const code_point_t first = first_code_point(text);
    if (!first.well_formed) {
        append_escape(result, "\\x%02X", static_cast<uint8_t>(text.front()));
        return 1;  // octet by octet: each is shown
    }
    if (is_unsafe(first.value)) {
        append_escape(result, first.length == 1 ? "\\x%02X" : "\\u{%04X}", first.value);
    } else {
        result += text.substr(0, first.length);
    }
    return first.length;
}

std::string escaped(std::string_view text, bool lines) {
    std::string result;
    while (!text.empty()) {
        if (lines && text.starts_with("\r\n")) {
            text.remove_prefix(1);
        } else if (lines && (text[0] == '\n' || text[0] == '\t')) {
            result += text[0];
            text.remove_prefix(1);
        } else {
            text.remove_prefix(append_escaped(result, text));
        }
    }
    return result;
}

}  // namespace

std::string escaped(std::string_view text) {
    return escaped(text, false);
}

std::string escaped_lines(std::string_view text) {
    return escaped(text, true);
}

}  // namespace base
