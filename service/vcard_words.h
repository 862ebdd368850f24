/// What is on a contact card, in words for people.
#pragma once

#include <string>
#include <vector>

#include "service/vcard_properties.h"

namespace vcard {

/// A line for each property: "telephone (cell): +12025550100", "photo: JPEG, 14 KB". One that is not known here stands
/// as it is on the card. May hold controls and octets that are not UTF-8.
std::vector<std::string> words_of(const card_t& card);

}  // namespace vcard
