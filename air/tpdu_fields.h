/// Inside the TPDU codec: the fields that several TPDUs share.
#pragma once

#include "air/tpdu.h"

namespace air {

/// Semi-octets, 3GPP TS 23.040 9.1.2.3: the first digit in the low half. They end at 0xF, the end mark, or where the
/// count does, whatever fills the last octet; its octets are read in any case.
std::string read_semi_octets(bit_reader_t& reader, size_t digits);
/// False when a character is no semi-octet.
bool write_semi_octets(std::string_view digits, octets_t& out);

/// The type-of-address octet, 9.1.2.5. Its first bit, always 1, announces nothing when it is 0.
void read_address_type(bit_reader_t& reader, address_t& address);
uint8_t address_type_octet(const address_t& address);

/// An address field of a TPDU: its length in semi-octets first.
address_t read_address(bit_reader_t& reader);
bool write_address(const address_t& address, octets_t& out);

/// TP-UDL and TP-UD, of the length that the alphabet makes of it.
octets_view_t read_user_data(bit_reader_t& reader, uint8_t data_coding, uint8_t& length);
/// False for a length that disagrees with the data or exceeds 140 octets.
bool write_user_data(uint8_t data_coding, uint8_t length, octets_view_t user_data, octets_t& out);

}  // namespace air
