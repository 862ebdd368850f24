/// How the characters of a card's file are written, and how they are made UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

enum class encoding_t {
    utf8,
    utf16_le,
    utf16_be,
    eight_bit,  // text of one octet a character, by its look
    unknown,
};

/// What some editors put before a text in UTF-8.
inline constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

/// UTF-16 without a mark is known by the zeros of the letters that every card begins with.
encoding_t encoding_of(std::string_view text);

/// The card in UTF-8, without a byte order mark. A line of one octet a character is read as its CHARSET (vCard 2.1)
/// says, or as Windows-1252, which Latin-1 is a part of; where other characters than ASCII stand, CHARSET then says
/// UTF-8. None when that cannot be.
std::optional<std::string> to_utf8(std::string_view card);
