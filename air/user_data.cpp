// TP-User-Data, 3GPP TS 23.040 9.2.3.24: its length, its header and the port addressing elements of that.
#include "air/tpdu_fields.h"

namespace air {

namespace {

constexpr uint8_t element_concatenation_8bit = 0x00;   // 9.2.3.24.1: reference, parts, part
constexpr uint8_t element_concatenation_16bit = 0x08;  // 9.2.3.24.8: the same, with a reference of two octets
constexpr uint8_t element_ports_8bit = 0x04;           // 9.2.3.24.3: destination, originator
constexpr uint8_t element_ports_16bit = 0x05;          // 9.2.3.24.4: destination, originator

// Calls `is_it` with the elements of a header in turn, up to the one that it is, or to one that is cut off.
template <typename predicate_t>
void find_element(octets_view_t header, const predicate_t& is_it) {
    bit_reader_t reader(header);
    while (reader.left() > 0) {
        const uint8_t identifier = reader.octet();
        const octets_view_t data = reader.octets(reader.octet());
        if (reader.failed() || is_it(identifier, data)) {
            return;
        }
    }
}

size_t octets_of(uint8_t data_coding, uint8_t length) {
    return alphabet_of(data_coding) == alphabet_t::gsm7 ? (length * 7U + 7) / 8 : length;
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

void read_user_data(bit_reader_t& reader, uint8_t data_coding, uint8_t& length, octets_t& user_data) {
    length = reader.octet();
    const size_t count = octets_of(data_coding, length);
    const octets_view_t octets = reader.octets(count);
    if (count > max_user_data || reader.left() != 0) {
        reader.fail();
    }
    user_data.assign(octets.begin(), octets.end());
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
    octets_t user_data = {static_cast<uint8_t>(header.size())};
    user_data.insert(user_data.end(), header.begin(), header.end());
    user_data.insert(user_data.end(), body.begin(), body.end());
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
    std::optional<uint16_t> port;
    find_element(header, [&](uint8_t identifier, octets_view_t data) {
        if (identifier == element_ports_16bit && data.size() == 4) {
            port = static_cast<uint16_t>(data[0] << 8 | data[1]);
        } else if (identifier == element_ports_8bit && data.size() == 2) {
            port = data[0];
        }
        return port.has_value();
    });
    return port;
}

std::optional<concatenation_t> concatenation(octets_view_t header) {
    std::optional<concatenation_t> found;
    find_element(header, [&](uint8_t identifier, octets_view_t data) {
        const bool is_short = identifier == element_concatenation_8bit && data.size() == 3;
        const bool is_long = identifier == element_concatenation_16bit && data.size() == 4;
        if (!is_short && !is_long) {
            return false;
        }
        const auto reference = static_cast<uint16_t>(is_short ? data[0] : data[0] << 8 | data[1]);
        const uint8_t parts = data[data.size() - 2];
        const uint8_t part = data[data.size() - 1];
        if (part != 0 && part <= parts) {
            const auto offset = static_cast<size_t>(data.data() - header.data());
            found = {offset, static_cast<uint8_t>(is_short ? 1 : 2), reference, part, parts};
        }
        return found.has_value();
    });
    return found;
}

}  // namespace air
