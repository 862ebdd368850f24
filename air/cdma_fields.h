/// Inside the codec of CDMA messages: the layout that the transport layer and the bearer data share, and the fields.
#pragma once

#include "air/bits.h"
#include "air/cdma.h"

namespace cdma {

/// Identifier, length octet, that many octets: a parameter of C.S0015 3.4.3, a subparameter of 4.5.
struct parameter_t {
    uint8_t identifier = 0;
    tpdu::octets_view_t octets;
};
/// Takes the next one off the front; none when it is cut short.
std::optional<parameter_t> next_parameter(tpdu::octets_view_t& octets);
/// False when it is longer than a length octet can say.
bool append_parameter(uint8_t identifier, tpdu::octets_view_t octets, tpdu::octets_t& out);

/// Originating and destination address, C.S0015 3.4.3.3.
tpdu::address_t read_address(bit_reader_t& reader);
bool write_address(const tpdu::address_t& address, bit_writer_t& writer);

/// Bearer data into and out of the message's members.
bool read_bearer_data(tpdu::octets_view_t octets, message_t& message);
std::optional<tpdu::octets_t> bearer_data_of(const message_t& message);

}  // namespace cdma
