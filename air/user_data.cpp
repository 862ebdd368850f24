// TP-User-Data, 3GPP TS 23.040 9.2.3.24: its length, its header, and the elements of that for ports and concatenation.
#include <algorithm>

#include "air/tpdu_fields.h"

namespace air {

namespace {

// 9.2.3.24
constexpr uint8_t concatenation_8bit = 0x00;
constexpr uint8_t ports_8bit = 0x04;   // destination, originator
constexpr uint8_t ports_16bit = 0x05;  // likewise
constexpr uint8_t concatenation_16bit = 0x08;

size_t octets_of(uint8_t data_coding, uint8_t length) {
    return alphabet_of(data_coding) == alphabet_t::gsm7 ? (length * 7U + 7) / 8 : length;
}

// What the driver insists on; it takes any length of an element that it does not know.
bool has_length_of_its_kind(uint8_t identifier, size_t length) {
    switch (identifier) {
        case concatenation_8bit:
            return length == 3;
        case ports_8bit:
            return length == 2;
        case ports_16bit:
        case concatenation_16bit:
            return length == 4;
        default:
            return true;
    }
}

place_t place_in(octets_view_t element) {
    const size_t width = element.size() - 2;
    const auto reference = static_cast<uint16_t>(width == 1 ? element[0] : element[0] << 8 | element[1]);
    const uint8_t part = element[width + 1];
    return {static_cast<uint8_t>(width), reference, std::max<uint8_t>(part, 1), element[width]};
}

}  // namespace

alphabet_t alphabet_of(uint8_t data_coding) {
    const unsigned group = data_coding >> 4;
    if (group < 0x8) {  // general, and marked for automatic deletion, which is coded alike
        constexpr uint8_t compressed_bit = 0x20;
        if (data_coding & compressed_bit) {
            return alphabet_t::compressed;
        }
        constexpr alphabet_t by_bits[] = {alphabet_t::gsm7, alphabet_t::octets8, alphabet_t::ucs2, alphabet_t::gsm7};
        return by_bits[data_coding >> 2 & 0x3];
    }
    if (group == 0xE) {  // message waiting, store, UCS2
        return alphabet_t::ucs2;
    }
    if (group == 0xF && (data_coding & 0x4)) {
        return alphabet_t::octets8;
    }
    return alphabet_t::gsm7;  // also the reserved groups, as 3GPP TS 23.038 4 asks
}

octets_view_t read_user_data(bit_reader_t& reader, uint8_t data_coding, uint8_t& length) {
    length = reader.octet();
    const size_t count = octets_of(data_coding, length);
    const octets_view_t octets = reader.octets(count);
    if (count > max_user_data) {
        reader.fail();
    }
    return octets;
}

bool write_user_data(uint8_t data_coding, uint8_t length, octets_view_t user_data, octets_t& out) {
    if (user_data.size() > max_user_data || user_data.size() != octets_of(data_coding, length)) {
        return false;
    }
    out.push_back(length);
    out.insert(out.end(), user_data.begin(), user_data.end());
    return true;
}

std::optional<octets_t> join_user_data(octets_view_t header, octets_view_t body) {
    if (header.empty() || 1 + header.size() + body.size() > max_user_data) {
        return std::nullopt;
    }
    std::optional<octets_t> user_data(1 + header.size() + body.size());
    uint8_t* const octets = user_data->data();
    octets[0] = static_cast<uint8_t>(header.size());
    std::copy_n(body.data(), body.size(), std::copy_n(header.data(), header.size(), octets + 1));
    return user_data;
}

std::optional<user_data_parts_t> split_user_data(octets_view_t user_data) {
    if (user_data.empty() || user_data[0] >= user_data.size()) {
        return std::nullopt;
    }
    const octets_view_t after_length = user_data.subspan(1);
    return user_data_parts_t{after_length.first(user_data[0]), after_length.subspan(user_data[0])};
}

std::optional<uint16_t> destination_port(octets_view_t header) {
    bit_reader_t reader(header);
    while (reader.left() > 0) {
        const uint8_t identifier = reader.octet();
        const octets_view_t element = reader.octets(reader.octet());
        if (identifier == ports_16bit && element.size() == 4) {
            return static_cast<uint16_t>(element[0] << 8 | element[1]);
        }
        if (identifier == ports_8bit && element.size() == 2) {
            return element[0];
        }
    }
    return std::nullopt;
}

std::optional<place_t> place_of(octets_view_t header) {
    std::optional<place_t> place;
    bit_reader_t reader(header);
    while (reader.left() > 0) {
        const uint8_t identifier = reader.octet();
        const octets_view_t element = reader.octets(reader.octet());
        if (reader.failed() || !has_length_of_its_kind(identifier, element.size())) {
            return std::nullopt;
        }
        if (!place && (identifier == concatenation_8bit || identifier == concatenation_16bit)) {
            place = place_in(element);
        }
    }
    if (place && place->part > place->parts) {
        return std::nullopt;
    }
    return place.value_or(place_t{});
}

}  // namespace air
