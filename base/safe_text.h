/// Text that came from elsewhere, made safe for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace base {

/// Readable on one line, whatever came over the air: control characters, those that change the direction of writing or
/// end a line, and octets that are not UTF-8 appear as \x1B or \u{202E}.
std::string escaped(std::string_view text);
/// The same on many lines: line ends (also CR LF) and tabs stay.
std::string escaped_lines(std::string_view text);

}  // namespace base
