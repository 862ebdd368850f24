// Cutting a card into datagrams.
#include <algorithm>

#include "com/sms/sms.h"

namespace {

// Of the 140 octets of TP user data a datagram's header takes the length octet and the 16-bit port element, 7 in all;
// of several datagrams each takes the concatenation element besides.
constexpr uint32_t single_datagram = 133;
constexpr uint32_t concat8_element = 5;
constexpr uint32_t concat16_element = 6;

bool is_continuation(char octet) {
    return (static_cast<uint8_t>(octet) & 0xC0) == 0x80;
}

/// The longest piece from `position` of at most `most` octets that ends between two characters; 0 when there is none.
uint32_t utf8_piece(const octet_string_t& data, size_t position, uint32_t most) {
    const size_t end = std::min(data.size(), position + most);
    if (end == data.size()) {
        return static_cast<uint32_t>(end - position);
    }
    size_t cut = end;
    while (cut > position && is_continuation(data[cut])) {
        --cut;
    }
    return static_cast<uint32_t>(cut - position);
}

}  // namespace

bool sms_split_chunks(const octet_string_t& data, bool is_utf8, bool use_long_ie, uint32_t /*header_size*/,
                      std::vector<uint32_t>& chunks) {
    chunks.clear();
    const auto length = static_cast<uint32_t>(data.size());
    if (length <= single_datagram) {
        chunks.push_back(length);
        return true;
    }
    const uint32_t full = single_datagram - (use_long_ie ? concat16_element : concat8_element);
    for (uint32_t position = 0; position < length;) {
        const uint32_t size = is_utf8 ? utf8_piece(data, position, full) : full;
        if (size == 0) {
            return false;
        }
        chunks.push_back(size);
        if (chunks.size() > max_datagrams) {
            chunks.back() = length - position;
            return false;
        }
        position += size;
    }
    return true;
}
