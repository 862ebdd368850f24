/// What libgammu makes of the same datagrams: the yardstick of codec_bench, in a file of its own, for its macros are
/// names of the platform.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace gammu {

/// Takes the texts one after the other.
using taker_t = std::function<void(std::string_view)>;

/// A card in 255 datagrams of 128 octets, down to the texts that AT+CMGS sends. What the datagrams share is set once.
/// (Its own cutting for this port ends at 50 datagrams.)
bool to_texts(const std::string& card, const std::string& number, uint8_t reference, const taker_t& take);

/// The text of an SMS-DELIVER into a message of libgammu, one for all calls.
bool to_message(const std::string& text);
/// What the last one holds behind its header.
std::string last_body();

}  // namespace gammu
