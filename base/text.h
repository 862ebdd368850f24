/// UTF-16 and UTF-8, the one place of their reading and writing. A surrogate pair is one code point; a lone surrogate,
/// and each ill-formed sequence of UTF-8, becomes U+FFFD. And the words for an errno.
#pragma once

#include <string>
#include <string_view>

namespace base {

std::string to_utf8(std::u16string_view text);
std::u16string to_utf16(std::string_view text);

/// What a text in UTF-8, which must not be empty, begins with. Of an ill-formed sequence: U+FFFD, and the length of its
/// maximal subpart (The Unicode Standard, 3.9, "U+FFFD Substitution of Maximal Subparts").
struct code_point_t {
    char32_t value;
    size_t length;  // octets
    bool well_formed;
};
code_point_t first_code_point(std::string_view text);
bool is_utf8(std::string_view text);
/// To compare texts without regard to case, of any alphabet.
std::string folded(std::string_view text);

/// "No such file or directory"; safe in any thread.
std::string errno_text(int error);

}  // namespace base
