/// Text that came from elsewhere, made safe for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace base {

/// The length of the well-formed UTF-8 sequence (Unicode 15 table 3-7) that begins `text`; 0 when none does.
size_t utf8_sequence(std::string_view text);
bool is_utf8(std::string_view text);

/// Readable on one line, whatever came over the air: control characters, those that change the direction of writing or
/// end a line, and octets that are not UTF-8 appear as \x1B or \u{202E}.
std::string escaped(std::string_view text);
/// The same on many lines: line ends (also CR LF) and tabs stay.
std::string escaped_lines(std::string_view text);

}  // namespace base
