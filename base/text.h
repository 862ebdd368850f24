/// UTF-16 and UTF-8: the one place of the conversion on Linux. A surrogate pair is one code point; a lone surrogate,
/// and each ill-formed sequence of UTF-8, becomes U+FFFD. And the words for an errno.
#pragma once

#include <string>
#include <string_view>

namespace base {

std::string to_utf8(std::u16string_view text);
std::u16string to_utf16(std::string_view text);

/// "No such file or directory"; safe in any thread.
std::string errno_text(int error);

}  // namespace base
