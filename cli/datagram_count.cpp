#include "cli/datagram_count.h"

#include <cstdint>

namespace {

// Of 140 octets of user data, the header with the ports takes 7, and with the concatenation's 8-bit or 16-bit reference
// 5 or 6 more (3GPP TS 23.040 9.2.3.24.1, 9.2.3.24.4, 9.2.3.24.8).
constexpr size_t single_datagram = 133;
constexpr size_t one_of_several = 128;
constexpr size_t one_of_several_long = 127;

bool is_inside_character(char octet) {
    return (static_cast<uint8_t>(octet) & 0xC0) == 0x80;
}

}  // namespace

size_t datagram_count(std::string_view card, bool is_utf8, bool long_reference) {
    if (card.size() <= single_datagram) {
        return 1;
    }
    const size_t full = long_reference ? one_of_several_long : one_of_several;
    size_t count = 1;
    for (; card.size() > full; ++count) {
        size_t cut = full;
        while (is_utf8 && cut > full - 3 && is_inside_character(card[cut])) {
            --cut;
        }
        card.remove_prefix(cut);
    }
    return count;
}
