// Address fields: 3GPP TS 23.040 9.1.2.5, and the service centre address of 3GPP TS 27.005 3.1 / 24.011 8.2.5.1.
#include <algorithm>
#include <array>

#include "air/gsm_alphabet.h"
#include "air/tpdu_fields.h"

namespace air {

namespace {

constexpr std::string_view semi_octet_characters = "0123456789*#abc";
constexpr uint8_t filler = 0xF;
constexpr uint8_t type_extension_bit = 0x80;

size_t semi_octet_of(char character) {
    const bool is_digit = character >= '0' && character <= '9';
    return is_digit ? static_cast<size_t>(character - '0') : semi_octet_characters.find(character);
}

size_t semi_octets_of(size_t septets) {
    return (septets * 7 + 3) / 4;
}

// A length that counts a semi-octet beyond the text tells nothing else: what is left of its octets is passed over.
std::string read_alphanumeric(bit_reader_t& reader, size_t semi_octets) {
    const octets_view_t octets = reader.octets((semi_octets + 1) / 2);
    return reader.failed() ? std::string() : gsm_alphabet::to_utf8(gsm_alphabet::unpack(octets, semi_octets * 4 / 7));
}

bool write_alphanumeric(const address_t& address, octets_t& out) {
    const std::optional<octets_t> septets = gsm_alphabet::from_utf8(address.text);
    if (!septets) {
        return false;
    }
    const size_t semi_octets = semi_octets_of(septets->size());
    if (semi_octets > max_address_digits) {
        return false;
    }
    const octets_t packed = gsm_alphabet::pack(*septets);
    out.insert(out.end(), {static_cast<uint8_t>(semi_octets), address_type_octet(address)});
    out.insert(out.end(), packed.begin(), packed.end());
    return true;
}

}  // namespace

std::string read_semi_octets(bit_reader_t& reader, size_t digits) {
    const octets_view_t octets = reader.octets((digits + 1) / 2);
    std::string text(octets.empty() ? 0 : digits, '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned value = octets[i / 2] >> (i % 2 * 4) & 0xFU;
        if (value == filler) {
            text.resize(i);
            break;
        }
        text[i] = semi_octet_characters[value];
    }
    return text;
}

bool write_semi_octets(std::string_view digits, octets_t& out) {
    for (size_t i = 0; i < digits.size(); i += 2) {
        const size_t low = semi_octet_of(digits[i]);
        const size_t high = i + 1 < digits.size() ? semi_octet_of(digits[i + 1]) : filler;
        if (low == std::string_view::npos || high == std::string_view::npos) {
            return false;
        }
        out.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return true;
}

void read_address_type(bit_reader_t& reader, address_t& address) {
    const uint8_t octet = reader.octet();
    address.type = static_cast<number_type_t>(octet >> 4 & 0x7);
    address.numbering_plan = octet & 0xF;
}

uint8_t address_type_octet(const address_t& address) {
    return static_cast<uint8_t>(type_extension_bit | static_cast<uint8_t>(address.type) << 4 | address.numbering_plan);
}

address_t read_address(bit_reader_t& reader) {
    address_t address;
    const uint8_t length = reader.octet();
    if (length > max_address_digits) {
        reader.fail();
    }
    read_address_type(reader, address);
    if (reader.failed()) {
        return address;
    }
    address.text = address.type == number_type_t::alphanumeric ? read_alphanumeric(reader, length)
                                                               : read_semi_octets(reader, length);
    return address;
}

bool write_address(const address_t& address, octets_t& out) {
    if (address.numbering_plan > 0xF) {
        return false;
    }
    if (address.type == number_type_t::alphanumeric) {
        return write_alphanumeric(address, out);
    }
    if (address.text.size() > max_address_digits) {
        return false;
    }
    out.insert(out.end(), {static_cast<uint8_t>(address.text.size()), address_type_octet(address)});
    return write_semi_octets(address.text, out);
}

std::optional<address_t> address_from_number(std::string_view number) {
    address_t address;
    if (number.starts_with('+')) {
        address.type = number_type_t::international;
        number.remove_prefix(1);
    }
    const bool digits_only = std::ranges::all_of(number, [](char c) { return c >= '0' && c <= '9'; });
    if (number.empty() || number.size() > max_address_digits || !digits_only) {
        return std::nullopt;
    }
    address.text = number;
    return address;
}

std::string number_from_address(const address_t& address) {
    if (address.type == number_type_t::international) {
        return "+" + address.text;
    }
    std::string text;
    for (const char c : address.text) {
        const bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        text += control ? std::string("\uFFFD") : std::string(1, c);
    }
    return text;
}

std::optional<pdu_t> decode_pdu(octets_view_t octets) {
    bit_reader_t reader(octets);
    pdu_t pdu;
    const uint8_t length = reader.octet();  // octets that follow, the type octet among them
    if (length > 0) {
        const size_t digits = (size_t{length} - 1) * 2;
        if (digits > max_address_digits || octets.size() <= length) {
            return std::nullopt;
        }
        read_address_type(reader, pdu.service_centre);
        pdu.service_centre.text = read_semi_octets(reader, digits);
    }
    if (pdu.service_centre.type == number_type_t::alphanumeric) {
        pdu.service_centre = {};
    }
    const octets_view_t tpdu = reader.octets(reader.left() / 8);
    if (reader.failed()) {
        return std::nullopt;
    }
    pdu.tpdu.assign(tpdu.begin(), tpdu.end());
    return pdu;
}

std::optional<octets_t> encode_pdu(const pdu_t& pdu) {
    const address_t& centre = pdu.service_centre;
    octets_t out = {0};
    if (!centre.text.empty()) {
        if (centre.type == number_type_t::alphanumeric || centre.text.size() > max_address_digits) {
            return std::nullopt;
        }
        out.push_back(address_type_octet(centre));
        if (!write_semi_octets(centre.text, out)) {
            return std::nullopt;
        }
        out[0] = static_cast<uint8_t>(out.size() - 1);
    }
    out.insert(out.end(), pdu.tpdu.begin(), pdu.tpdu.end());
    return out;
}

}  // namespace air
