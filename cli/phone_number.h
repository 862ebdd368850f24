/// Phone numbers as a person types them.
#pragma once

#include <string>
#include <string_view>

/// The number without "tel:" (RFC 3966) before it and without what people write between its digits: blanks, hyphens,
/// dots, slashes, parentheses. What else is no digit stays, for check_number() to tell.
std::string bare_number(std::string_view typed);

/// Digits with an optional "+" before them, at most 20 (3GPP TS 23.040 9.1.2.5). Returns an empty text, or what is
/// wrong and how to write it.
std::string check_number(std::string_view number);

/// Makes the number that was typed a bare one. Returns an empty text, or what is wrong with it as it was typed.
std::string read_number(std::string& number);
