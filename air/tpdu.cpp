// SMS-SUBMIT and SMS-DELIVER, 3GPP TS 23.040 9.2.2.
#include "air/tpdu.h"

#include <utility>

#include "air/tpdu_fields.h"

namespace air {

namespace {

// The first octet, 9.2.3.1 to 9.2.3.7, 9.2.3.17, 9.2.3.23, 9.2.3.25 and 9.2.3.28.
constexpr uint8_t type_mask = 0x03;
constexpr uint8_t type_deliver = 0x00;
constexpr uint8_t type_submit = 0x01;
constexpr uint8_t type_reserved = 0x03;
constexpr uint8_t bit_loop_prevention = 0x08;    // deliver
constexpr uint8_t bit_reject_duplicates = 0x04;  // submit
constexpr uint8_t validity_mask = 0x18;          // submit
constexpr uint8_t validity_relative = 0x10;
constexpr uint8_t bit_status_report = 0x20;  // requested (submit) or to be returned (deliver)
constexpr uint8_t bit_header = 0x40;
constexpr uint8_t bit_reply_path = 0x80;

constexpr uint8_t bit_west = 0x08;  // of the time zone's first semi-octet: negative

constexpr size_t most_octets = 12 + 11 + max_user_data;  // the address, the other fields of a delivery, its user data

unsigned digit(unsigned semi_octet) {
    return semi_octet > 9 ? 0 : semi_octet;
}

uint8_t number_of(uint8_t octet) {
    return static_cast<uint8_t>(digit(octet & 0xFU) * 10 + digit(octet >> 4));
}

uint8_t two_digits(uint8_t value) {
    return static_cast<uint8_t>(value % 10 << 4 | value / 10);
}

int8_t time_zone_of(uint8_t octet) {
    const bool west = (octet & bit_west) != 0;
    const int quarters = (octet & 0x7) * 10 + static_cast<int>(digit(octet >> 4));
    return static_cast<int8_t>(west ? -quarters : quarters);
}

timestamp_t read_timestamp(bit_reader_t& reader) {
    constexpr size_t size = 7;
    const octets_view_t octets = reader.octets(size);
    if (octets.empty()) {
        return {};
    }
    return {.year = number_of(octets[0]),
            .month = number_of(octets[1]),
            .day = number_of(octets[2]),
            .hour = number_of(octets[3]),
            .minute = number_of(octets[4]),
            .second = number_of(octets[5]),
            .quarters_east = time_zone_of(octets[6])};
}

bool write_timestamp(const timestamp_t& time, octets_t& out) {
    for (const uint8_t field : {time.year, time.month, time.day, time.hour, time.minute, time.second}) {
        if (field > 99) {
            return false;
        }
        out.push_back(two_digits(field));
    }
    const int quarters = time.quarters_east < 0 ? -time.quarters_east : time.quarters_east;
    if (quarters > 79) {
        return false;
    }
    const uint8_t digits = two_digits(static_cast<uint8_t>(quarters));
    out.push_back(static_cast<uint8_t>(digits | (time.quarters_east < 0 ? bit_west : 0)));
    return true;
}

uint8_t flag(bool set, uint8_t bit) {
    return set ? bit : uint8_t{0};
}

}  // namespace

std::optional<submit_t> decode_submit(octets_view_t octets) {
    bit_reader_t reader(octets);
    submit_t submit;
    const uint8_t first = reader.octet();
    const uint8_t validity = first & validity_mask;
    if ((first & type_mask) != type_submit || (validity != 0 && validity != validity_relative)) {
        return std::nullopt;
    }
    submit.reject_duplicates = first & bit_reject_duplicates;
    submit.status_report_request = first & bit_status_report;
    submit.header_indicator = first & bit_header;
    submit.reply_path = first & bit_reply_path;
    submit.message_reference = reader.octet();
    submit.destination = read_address(reader);
    submit.protocol_identifier = reader.octet();
    submit.data_coding = reader.octet();
    if (validity == validity_relative) {
        submit.validity_period = reader.octet();
    }
    const octets_view_t user_data = read_user_data(reader, submit.data_coding, submit.user_data_length);
    submit.user_data.assign(user_data.begin(), user_data.end());
    return reader.failed() || reader.left() != 0 ? std::nullopt : std::optional(std::move(submit));
}

std::optional<octets_t> encode(const submit_t& submit) {
    octets_t out;
    out.reserve(most_octets);
    out.push_back(static_cast<uint8_t>(type_submit | flag(submit.reject_duplicates, bit_reject_duplicates) |
                                       flag(submit.validity_period.has_value(), validity_relative) |
                                       flag(submit.status_report_request, bit_status_report) |
                                       flag(submit.header_indicator, bit_header) |
                                       flag(submit.reply_path, bit_reply_path)));
    out.push_back(submit.message_reference);
    if (!write_address(submit.destination, out)) {
        return std::nullopt;
    }
    out.insert(out.end(), {submit.protocol_identifier, submit.data_coding});
    if (submit.validity_period) {
        out.push_back(*submit.validity_period);
    }
    if (!write_user_data(submit.data_coding, submit.user_data_length, submit.user_data, out)) {
        return std::nullopt;
    }
    return out;
}

void set_reference(octets_t& submit, uint8_t reference, bool reject_duplicates) {
    submit[0] =
        static_cast<uint8_t>((submit[0] & ~bit_reject_duplicates) | flag(reject_duplicates, bit_reject_duplicates));
    submit[1] = reference;
}

std::optional<deliver_t> decode_deliver(octets_view_t octets) {
    octets_view_t user_data;
    std::optional<deliver_t> deliver = decode_deliver_fields(octets, user_data);
    if (deliver) {
        deliver->user_data.assign(user_data.begin(), user_data.end());
    }
    return deliver;
}

std::optional<deliver_t> decode_deliver_fields(octets_view_t octets, octets_view_t& user_data) {
    bit_reader_t reader(octets);
    std::optional<deliver_t> decoded(std::in_place);
    deliver_t& deliver = *decoded;
    const uint8_t first = reader.octet();
    if ((first & type_mask) != type_deliver && (first & type_mask) != type_reserved) {
        return std::nullopt;
    }
    deliver.more_messages = !(first & bit_no_more_messages);
    deliver.loop_prevention = first & bit_loop_prevention;
    deliver.status_report_indication = first & bit_status_report;
    deliver.header_indicator = first & bit_header;
    deliver.reply_path = first & bit_reply_path;
    deliver.originator = read_address(reader);
    deliver.protocol_identifier = reader.octet();
    deliver.data_coding = reader.octet();
    deliver.service_centre_time = read_timestamp(reader);
    user_data = read_user_data(reader, deliver.data_coding, deliver.user_data_length);
    deliver.padding = reader.left() / 8;
    if (reader.failed()) {
        decoded.reset();
    }
    return decoded;
}

std::optional<octets_t> encode(const deliver_t& deliver) {
    octets_t out;
    out.reserve(most_octets);
    out.push_back(static_cast<uint8_t>(
        type_deliver | flag(!deliver.more_messages, bit_no_more_messages) |
        flag(deliver.loop_prevention, bit_loop_prevention) | flag(deliver.status_report_indication, bit_status_report) |
        flag(deliver.header_indicator, bit_header) | flag(deliver.reply_path, bit_reply_path)));
    if (!write_address(deliver.originator, out)) {
        return std::nullopt;
    }
    out.insert(out.end(), {deliver.protocol_identifier, deliver.data_coding});
    if (!write_timestamp(deliver.service_centre_time, out) ||
        !write_user_data(deliver.data_coding, deliver.user_data_length, deliver.user_data, out)) {
        return std::nullopt;
    }
    return out;
}

}  // namespace air
