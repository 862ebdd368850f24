#include "cli/vcard_split.h"

#include <algorithm>
#include <cctype>

#include "cli/text_encoding.h"

namespace {

constexpr std::string_view white_space = " \t\r\n";

/// Whether a line is this, in any case of letters, but for white space after it. What begins with white space goes on
/// with the line before (RFC 6350 3.2).
bool is_line(std::string_view line, std::string_view wanted) {
    const size_t end = line.find_last_not_of(white_space);
    return end != std::string_view::npos &&
           std::ranges::equal(line.substr(0, end + 1), wanted,
                              [](unsigned char a, unsigned char b) { return std::toupper(a) == b; });
}

}  // namespace

vcards_t split_vcards(std::string_view text) {
    vcards_t found;
    size_t depth = 0;
    size_t begin = 0;
    size_t next = text.starts_with(byte_order_mark) ? byte_order_mark.size() : 0;
    while (next < text.size()) {
        const size_t at = next;
        next = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string_view line = text.substr(at, next - at);
        if (is_line(line, "BEGIN:VCARD")) {
            begin = depth++ == 0 ? at : begin;
        } else if (depth == 0) {
            found.more = found.more || line.find_first_not_of(white_space) != std::string_view::npos;
        } else if (is_line(line, "END:VCARD") && --depth == 0) {
            found.cards.push_back(text.substr(begin, next - begin));
        }
    }
    found.more = found.more || depth != 0;
    return found;
}
