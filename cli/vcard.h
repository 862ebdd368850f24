/// The name on a contact card, as phones write it: vCard 2.1 (quoted-printable values), 3.0 (RFC 2426) and 4.0 (RFC
/// 6350). Nothing else of a card is looked into. Octets of a character set other than UTF-8 stay as they are.
#pragma once

#include <string>
#include <string_view>

/// The first FN property, else the N property as "given family"; empty when the card has neither.
std::string card_name(std::string_view card);
