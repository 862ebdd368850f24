/// The properties of contact cards, as phones write them: vCard 2.1 (quoted-printable values), 3.0 (RFC 2426) and 4.0
/// (RFC 6350). Octets of a character set other than UTF-8 stay as they are. The time is linear in the octets.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vcard {

struct property_t {
    std::string name;                     // upper case, without its group; empty for a line that has no ":"
    std::vector<std::string> parameters;  // as they stand: "TYPE=cell"
    std::string value;                    // in one piece, quoted-printable undone; else as it stands
};

using card_t = std::vector<property_t>;  // without BEGIN and END

/// Each BEGIN:VCARD with what follows to its END:VCARD, which may be missing; the properties outside of these are one
/// more, the last, if a name (FN, N) is among them. A card inside of another (AGENT) is left out.
std::vector<card_t> cards_of(std::string_view octets);

/// The components of a value, parted by ";" (RFC 6350 3.4), their escapes (4) undone; a line break becomes a blank.
std::vector<std::string> components(std::string_view value);
/// A value that has no components.
std::string text_of(std::string_view value);
/// Those that are not empty.
std::string joined(const std::vector<std::string>& parts, std::string_view separator);

std::string upper(std::string_view text);
/// Whether the parameters tell so.
bool is_base64(const property_t& property);

}  // namespace vcard
