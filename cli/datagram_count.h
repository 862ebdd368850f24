/// How many datagrams a card takes, without a driver to ask.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr size_t most_datagrams = 255;  // of one message

/// As the driver cuts it: one datagram holds 133 octets; of several each holds 128, or 127 with the 16-bit reference.
/// Text in UTF-8 (it must be well formed) is cut between characters only. More than most_datagrams cannot be sent.
size_t datagram_count(std::string_view card, bool is_utf8, bool long_reference);
