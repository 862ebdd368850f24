/// Phone numbers as a person types them.
#pragma once

#include <string>
#include <string_view>

/// Digits with an optional "+" before them, at most 20 (3GPP TS 23.040 9.1.2.5). Returns an empty text, or what is
/// wrong and how to write it.
std::string check_number(std::string_view number);
