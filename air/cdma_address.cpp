// Address parameters, 3GPP2 C.S0015 3.4.3.3: digits of four bits, or characters of eight with a type and a plan.
#include <algorithm>

#include "air/cdma_fields.h"

namespace air::cdma {

namespace {

constexpr size_t type_bits = 3;
constexpr size_t plan_bits = 4;
constexpr uint8_t electronic_mail = 2;  // the type of a data network address, C.S0015 3.4.3.3

// DTMF digits, 3GPP2 C.S0005 table 2.7.1.3.2.4-4, by their codes; 0 and those from 13 on, which it reserves, as the
// keys of a telephone continue.
constexpr std::string_view dtmf_digits = "D1234567890*#ABC";

bool printable(char character) {
    return character >= 0x20 && character < 0x7F;
}

std::string read_digits(bit_reader_t& reader) {
    std::string text;
    for (size_t count = reader.octet(); count > 0 && !reader.failed(); --count) {
        text += dtmf_digits[reader.bits(4)];
    }
    return text;
}

std::string read_characters(bit_reader_t& reader) {
    std::string text;
    for (size_t count = reader.octet(); count > 0 && !reader.failed(); --count) {
        const char character = static_cast<char>(reader.octet());
        text += printable(character) ? character : '?';
    }
    return text;
}

// The types of a number are those of 3GPP TS 23.040, but for the one that CDMA has no use for.
number_type_t number_type(uint16_t bits) {
    const auto type = static_cast<number_type_t>(bits);
    return type == number_type_t::alphanumeric ? number_type_t::reserved : type;
}

}  // namespace

address_t read_address(bit_reader_t& reader) {
    address_t address;
    const bool as_characters = reader.bits(1) != 0;  // DIGIT_MODE
    const bool data_network = reader.bits(1) != 0;   // NUMBER_MODE
    if (!as_characters) {
        address.text = read_digits(reader);
        return address;
    }
    address.type = number_type(reader.bits(type_bits));
    if (data_network) {
        address.type = number_type_t::alphanumeric;
    } else {
        address.numbering_plan = static_cast<uint8_t>(reader.bits(plan_bits));
    }
    address.text = read_characters(reader);
    return address;
}

bool write_address(const address_t& address, bit_writer_t& writer) {
    const bool data_network = address.type == number_type_t::alphanumeric;
    const bool is_dtmf = address.type == number_type_t::unknown && address.numbering_plan == 1 &&
                         address.text.find_first_not_of(dtmf_digits) == std::string::npos;
    if (address.text.size() > UINT8_MAX || !std::ranges::all_of(address.text, printable)) {
        return false;
    }
    writer.bits(is_dtmf ? 0 : 1, 1);
    writer.bits(data_network ? 1 : 0, 1);
    if (!is_dtmf) {
        writer.bits(data_network ? electronic_mail : static_cast<uint8_t>(address.type), type_bits);
    }
    if (!is_dtmf && !data_network) {
        writer.bits(address.numbering_plan, plan_bits);
    }
    writer.bits(static_cast<unsigned>(address.text.size()), 8);
    for (const char character : address.text) {
        if (is_dtmf) {
            writer.bits(static_cast<unsigned>(dtmf_digits.find(character)), 4);
        } else {
            writer.bits(static_cast<uint8_t>(character), 8);
        }
    }
    return true;
}

}  // namespace air::cdma
