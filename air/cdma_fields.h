/// Inside the codec of CDMA messages: the layout that the transport layer and the bearer data share, and the fields.
#pragma once

#include <utility>

#include "air/cdma.h"

namespace air::cdma {

/// Identifier, length octet, that many octets: a parameter of C.S0015 3.4.3, a subparameter of 4.5.
struct parameter_t {
    uint8_t identifier = 0;
    octets_view_t octets;
};
/// Takes the next one off the front; none at the end, or when it is cut short.
std::optional<parameter_t> next_parameter(octets_view_t& octets);
/// What was read, unless the reader has failed.
template <class value_t>
void set_if_whole(const bit_reader_t& reader, value_t value, std::optional<value_t>& out) {
    if (!reader.failed()) {
        out = std::move(value);
    }
}
/// False when it is longer than a length octet can say.
bool append_parameter(uint8_t identifier, octets_view_t octets, octets_t& out);

/// Originating and destination address, C.S0015 3.4.3.3.
address_t read_address(bit_reader_t& reader);
bool write_address(const address_t& address, bit_writer_t& writer);

/// Bearer data into and out of the message's members.
bool read_bearer_data(octets_view_t octets, message_t& message);
std::optional<octets_t> bearer_data_of(const message_t& message);

}  // namespace air::cdma
