// The transport layer: SMS point-to-point messages, 3GPP2 C.S0015 3.4.2.1.
#include "air/cdma.h"

#include "air/cdma_fields.h"

namespace air::cdma {

namespace {

constexpr uint8_t point_to_point = 0;  // SMS_MSG_TYPE

// PARAMETER_ID, C.S0015 3.4.3.
constexpr uint8_t parameter_teleservice = 0x00;
constexpr uint8_t parameter_originating_address = 0x02;
constexpr uint8_t parameter_destination_address = 0x04;
constexpr uint8_t parameter_bearer_reply_option = 0x06;
constexpr uint8_t parameter_bearer_data = 0x08;

constexpr size_t teleservice_bits = 16;
constexpr size_t reply_sequence_bits = 6;

uint8_t address_parameter(message_type_t type) {
    return type == message_type_t::deliver ? parameter_originating_address : parameter_destination_address;
}

/// The parameters of a message, each the last of its kind.
struct parameters_t {
    std::optional<uint16_t> teleservice;
    std::optional<address_t> originating;
    std::optional<address_t> destination;
    std::optional<uint8_t> reply_sequence;
    std::optional<octets_view_t> bearer_data;
};

void read_parameter(const parameter_t& parameter, parameters_t& read) {
    bit_reader_t reader(parameter.octets);
    switch (parameter.identifier) {
        case parameter_teleservice:
            set_if_whole(reader, reader.bits(teleservice_bits), read.teleservice);
            break;
        case parameter_originating_address:
            set_if_whole(reader, read_address(reader), read.originating);
            break;
        case parameter_destination_address:
            set_if_whole(reader, read_address(reader), read.destination);
            break;
        case parameter_bearer_reply_option:
            set_if_whole(reader, static_cast<uint8_t>(reader.bits(reply_sequence_bits)), read.reply_sequence);
            break;
        case parameter_bearer_data:
            read.bearer_data = parameter.octets;
            break;
        default:
            break;
    }
}

}  // namespace

std::optional<parameter_t> next_parameter(octets_view_t& octets) {
    constexpr size_t before = 2;
    if (octets.size() < before || octets.size() - before < octets[1]) {
        return std::nullopt;
    }
    const parameter_t parameter{octets[0], octets.subspan(before, octets[1])};
    octets = octets.subspan(before + parameter.octets.size());
    return parameter;
}

bool append_parameter(uint8_t identifier, octets_view_t octets, octets_t& out) {
    if (octets.size() > UINT8_MAX) {
        return false;
    }
    out.insert(out.end(), {identifier, static_cast<uint8_t>(octets.size())});
    out.insert(out.end(), octets.begin(), octets.end());
    return true;
}

std::optional<message_t> decode(octets_view_t octets) {
    if (octets.empty() || octets[0] != point_to_point) {
        return std::nullopt;
    }
    parameters_t read;
    octets = octets.subspan(1);
    while (const std::optional<parameter_t> parameter = next_parameter(octets)) {
        read_parameter(*parameter, read);
    }
    message_t message;
    if (!read.teleservice || !read.bearer_data || !read_bearer_data(*read.bearer_data, message)) {
        return std::nullopt;
    }
    const bool deliver = message.type == message_type_t::deliver;
    if (!(deliver ? read.originating : read.destination)) {
        return std::nullopt;
    }
    message.teleservice = *read.teleservice;
    message.address = deliver ? *read.originating : *read.destination;
    message.reply_sequence = read.reply_sequence;
    return message;
}

octets_t without_reply_option(octets_view_t octets) {
    octets_t out;
    if (!octets.empty()) {
        out.push_back(octets[0]);
        octets = octets.subspan(1);
    }
    while (const std::optional<parameter_t> parameter = next_parameter(octets)) {
        if (parameter->identifier != parameter_bearer_reply_option) {
            append_parameter(parameter->identifier, parameter->octets, out);
        }
    }
    out.insert(out.end(), octets.begin(), octets.end());
    return out;
}

std::optional<octets_t> encode(const message_t& message) {
    bit_writer_t teleservice;
    teleservice.bits(message.teleservice, teleservice_bits);
    bit_writer_t address;
    const std::optional<octets_t> bearer_data = bearer_data_of(message);
    octets_t out = {point_to_point};
    if (!bearer_data || !write_address(message.address, address) ||
        !append_parameter(parameter_teleservice, teleservice.octets(), out) ||
        !append_parameter(address_parameter(message.type), address.octets(), out)) {
        return std::nullopt;
    }
    if (message.reply_sequence) {
        bit_writer_t reply;
        reply.bits(*message.reply_sequence, reply_sequence_bits);
        append_parameter(parameter_bearer_reply_option, reply.octets(), out);
    }
    return append_parameter(parameter_bearer_data, *bearer_data, out) ? std::optional(out) : std::nullopt;
}

}  // namespace air::cdma
