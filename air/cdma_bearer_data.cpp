// Bearer data, 3GPP2 C.S0015 4.5: the subparameters of submit and deliver messages.
#include <utility>

#include "air/cdma_fields.h"

namespace air::cdma {

namespace {

// SUBPARAMETER_ID, C.S0015 4.5.
constexpr uint8_t subparameter_message_identifier = 0x00;
constexpr uint8_t subparameter_user_data = 0x01;

constexpr struct {
    uint8_t identifier;
    std::optional<timestamp_t> message_t::*member;
} time_rows[] = {
    {0x03, &message_t::service_centre_time},
    {0x04, &message_t::validity_absolute},
};

constexpr struct {
    uint8_t identifier;
    std::optional<uint8_t> message_t::*member;
    size_t bits;
} number_rows[] = {
    {0x05, &message_t::validity_relative, 8},
    {0x08, &message_t::priority, 2},
    {0x09, &message_t::privacy, 2},
    {0x0F, &message_t::display_mode, 2},
};

constexpr size_t message_type_bits = 4;
constexpr size_t message_identifier_bits = 16;
constexpr size_t encoding_bits = 5;

// None for an encoding that is not decoded.
std::optional<size_t> character_bits(encoding_t encoding) {
    switch (encoding) {
        case encoding_t::octets:
            return 8;
        case encoding_t::ascii:
            return 7;
    }
    return std::nullopt;
}

void read_message_identifier(bit_reader_t& reader, message_t& message) {
    message.type = static_cast<message_type_t>(reader.bits(message_type_bits));
    message.identifier = reader.bits(message_identifier_bits);
    message.header_indicator = reader.bits(1) != 0;
}

void read_user_data(bit_reader_t& reader, message_t& message) {
    user_data_t user_data;
    user_data.encoding = static_cast<encoding_t>(reader.bits(encoding_bits));
    const std::optional<size_t> width = character_bits(user_data.encoding);
    if (!width) {
        message.user_data.reset();
        return;
    }
    for (size_t count = reader.octet(); count > 0 && !reader.failed(); --count) {
        user_data.characters.push_back(static_cast<uint8_t>(reader.bits(*width)));
    }
    message.user_data.reset();
    set_if_whole(reader, std::move(user_data), message.user_data);
}

unsigned read_digit(bit_reader_t& reader) {
    const uint16_t digit = reader.bits(4);
    return digit > 9 ? 0 : digit;
}

// Six octets of two decimal digits each; what is no digit counts as 0, as in a TPDU.
timestamp_t read_time(bit_reader_t& reader) {
    timestamp_t time;
    for (uint8_t* field : {&time.year, &time.month, &time.day, &time.hour, &time.minute, &time.second}) {
        const unsigned tens = read_digit(reader);
        *field = static_cast<uint8_t>(tens * 10 + read_digit(reader));
    }
    return time;
}

bool write_time(const timestamp_t& time, bit_writer_t& writer) {
    bool fits = true;
    for (const uint8_t field : {time.year, time.month, time.day, time.hour, time.minute, time.second}) {
        fits = fits && field < 100;
        writer.bits(field / 10U, 4);
        writer.bits(field % 10U, 4);
    }
    return fits;
}

// False for a message identifier that is cut short.
bool read_subparameter(const parameter_t& subparameter, message_t& message) {
    bit_reader_t reader(subparameter.octets);
    if (subparameter.identifier == subparameter_message_identifier) {
        read_message_identifier(reader, message);
        return !reader.failed();
    }
    if (subparameter.identifier == subparameter_user_data) {
        read_user_data(reader, message);
    }
    for (const auto& row : time_rows) {
        if (row.identifier == subparameter.identifier) {
            set_if_whole(reader, read_time(reader), message.*row.member);
        }
    }
    for (const auto& row : number_rows) {
        if (row.identifier == subparameter.identifier) {
            set_if_whole(reader, static_cast<uint8_t>(reader.bits(row.bits)), message.*row.member);
        }
    }
    return true;
}

bool append_message_identifier(const message_t& message, octets_t& out) {
    bit_writer_t writer;
    writer.bits(static_cast<uint8_t>(message.type), message_type_bits);
    writer.bits(message.identifier, message_identifier_bits);
    writer.bits(message.header_indicator ? 1 : 0, 1);
    writer.bits(0, 3);
    return append_parameter(subparameter_message_identifier, writer.octets(), out);
}

bool append_user_data(const user_data_t& user_data, octets_t& out) {
    const std::optional<size_t> width = character_bits(user_data.encoding);
    if (!width || user_data.characters.size() > UINT8_MAX) {
        return false;
    }
    bit_writer_t writer;
    writer.bits(static_cast<uint8_t>(user_data.encoding), encoding_bits);
    writer.bits(static_cast<unsigned>(user_data.characters.size()), 8);
    for (const uint8_t character : user_data.characters) {
        if (character >> *width != 0) {
            return false;
        }
        writer.bits(character, *width);
    }
    return append_parameter(subparameter_user_data, writer.octets(), out);
}

bool append_time(uint8_t identifier, const timestamp_t& time, octets_t& out) {
    bit_writer_t writer;
    return write_time(time, writer) && append_parameter(identifier, writer.octets(), out);
}

bool append_number(uint8_t identifier, uint8_t value, size_t bits, octets_t& out) {
    bit_writer_t writer;
    writer.bits(value, bits);
    return value >> bits == 0 && append_parameter(identifier, writer.octets(), out);
}

}  // namespace

bool read_bearer_data(octets_view_t octets, message_t& message) {
    bool has_type = false;
    while (const std::optional<parameter_t> subparameter = next_parameter(octets)) {
        if (!read_subparameter(*subparameter, message)) {
            return false;
        }
        has_type = has_type || subparameter->identifier == subparameter_message_identifier;
    }
    return has_type && (message.type == message_type_t::deliver || message.type == message_type_t::submit);
}

std::optional<octets_t> bearer_data_of(const message_t& message) {
    octets_t out;
    bool fits = append_message_identifier(message, out);
    fits = fits && (!message.user_data || append_user_data(*message.user_data, out));
    for (const auto& row : time_rows) {
        const std::optional<timestamp_t>& time = message.*row.member;
        fits = fits && (!time || append_time(row.identifier, *time, out));
    }
    for (const auto& row : number_rows) {
        const std::optional<uint8_t>& value = message.*row.member;
        fits = fits && (!value || append_number(row.identifier, *value, row.bits, out));
    }
    return fits ? std::optional(out) : std::nullopt;
}

}  // namespace air::cdma
