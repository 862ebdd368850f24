#include "cli/text_encoding.h"

#include <iconv.h>

#include <algorithm>
#include <cctype>

#include "base/text.h"

namespace {

bool is_ascii(std::string_view text) {
    return std::ranges::all_of(text, [](unsigned char octet) { return octet < 0x80; });
}

/// Two octets a character, of which the second (`zero` 1) or the first (0) is 0.
bool begins_with_zeros_at(std::string_view text, size_t zero) {
    return text.size() >= 4 && text.size() % 2 == 0 && text[zero] == 0 && text[zero + 2] == 0 && text[1 - zero] != 0 &&
           text[3 - zero] != 0;
}

/// No controls but those of lines, and nothing in it that is UTF-8: that would be UTF-8 which came to harm.
bool looks_like_eight_bit(std::string_view text) {
    while (!text.empty()) {
        const auto next = base::first_code_point(text);
        const bool is_control = next.value < 0x20 && next.value != '\t' && next.value != '\r' && next.value != '\n';
        if (is_control || (next.well_formed && next.length > 1)) {
            return false;
        }
        text.remove_prefix(next.length);
    }
    return true;
}

std::optional<std::string> converted(std::string_view text, const std::string& charset) {
    iconv_t conversion = iconv_open("UTF-8", charset.c_str());
    if (conversion == iconv_t(-1)) {  // NOLINT(performance-no-int-to-ptr): as iconv_open is specified
        return std::nullopt;
    }
    std::string result(4 * text.size(), '\0');
    char* from = const_cast<char*>(text.data());  // it only reads
    char* to = result.data();
    size_t from_left = text.size();
    size_t to_left = result.size();
    const bool done = iconv(conversion, &from, &from_left, &to, &to_left) != size_t(-1) && from_left == 0;
    iconv_close(conversion);
    result.resize(result.size() - to_left);
    // What a text says of itself may be wrong: its UTF-8 can name characters that there are not.
    return done && base::is_utf8(result) ? std::optional(result) : std::nullopt;
}

/// Where the value of the parameter CHARSET is; an empty view at the line's end when it has none.
std::string_view charset_in(std::string_view line) {
    constexpr std::string_view parameter = ";CHARSET=";
    const std::string_view head = line.substr(0, line.find(':'));
    const auto* const found = std::search(head.begin(), head.end(), parameter.begin(), parameter.end(),
                                          [](unsigned char a, unsigned char b) { return std::toupper(a) == b; });
    if (found == head.end()) {
        return line.substr(line.size());
    }
    const std::string_view value = head.substr(static_cast<size_t>(found - head.begin()) + parameter.size());
    return value.substr(0, value.find(';'));
}

/// The lines as they are, but `convert` makes UTF-8 of those with other characters than ASCII, given the charset that
/// their property names; which is UTF-8 then.
template <typename convert_t>
std::optional<std::string> each_line(std::string_view card, const convert_t& convert) {
    std::string result;
    std::string charset;
    while (!card.empty()) {
        const std::string_view line = card.substr(0, std::min(card.find('\n'), card.size() - 1) + 1);
        card.remove_prefix(line.size());
        const std::string_view named = charset_in(line);
        if (!line.starts_with(' ') && !line.starts_with('\t')) {
            charset = named;
        }
        if (is_ascii(line)) {
            result += line;
            continue;
        }
        const auto text = convert(line, charset);
        if (!text) {
            return std::nullopt;
        }
        const std::string_view now_named = charset_in(*text);  // what stands before it may be longer now
        const size_t at = static_cast<size_t>(now_named.data() - text->data());
        result += now_named.empty() ? *text : text->substr(0, at) + "UTF-8" + text->substr(at + now_named.size());
    }
    return result;
}

}  // namespace

encoding_t encoding_of(std::string_view text) {
    if (text.starts_with("\xFF\xFE") || begins_with_zeros_at(text, 1)) {
        return encoding_t::utf16_le;
    }
    if (text.starts_with("\xFE\xFF") || begins_with_zeros_at(text, 0)) {
        return encoding_t::utf16_be;
    }
    if (base::is_utf8(text)) {
        return encoding_t::utf8;
    }
    return looks_like_eight_bit(text) ? encoding_t::eight_bit : encoding_t::unknown;
}

std::optional<std::string> to_utf8(std::string_view card) {
    const encoding_t encoding = encoding_of(card);
    if (encoding == encoding_t::eight_bit) {
        return each_line(card, [](std::string_view line, const std::string& charset) {
            return converted(line, charset.empty() ? "WINDOWS-1252" : charset);
        });
    }
    std::optional<std::string> text(card);
    if (encoding != encoding_t::utf8) {
        text = converted(card, encoding == encoding_t::utf16_le ? "UTF-16LE" : "UTF-16BE");
    }
    if (text && text->starts_with(byte_order_mark)) {
        text->erase(0, byte_order_mark.size());
    }
    if (!text || encoding == encoding_t::utf8) {
        return text;
    }
    return each_line(*text, [](std::string_view line, const std::string&) { return std::optional<std::string>(line); });
}
