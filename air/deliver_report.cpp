#include "air/deliver_report.h"

#include "air/tpdu.h"

namespace air {

namespace {

constexpr uint8_t type_mask = 0x03;  // TP-MTI, 9.2.3.1: 0 from a phone is a DELIVER-REPORT
constexpr uint8_t bit_header = 0x40;

constexpr uint8_t lowest_cause = 0x80;  // TP-FCS, 9.2.3.22

// TP-PI, 9.2.3.27: which of the optional fields follow. Its reserved bits mean nothing yet.
constexpr uint8_t bit_protocol_identifier = 0x01;
constexpr uint8_t bit_data_coding = 0x02;
constexpr uint8_t bit_user_data = 0x04;
constexpr uint8_t bit_extension = 0x80;  // another octet of indicators follows

// 9.2.2.1a: the whole of an RP-User-Data holds so many octets of TP-UD besides the fields before it.
constexpr size_t max_user_data_of(deliver_report_t kind) {
    return kind == deliver_report_t::of_error ? 158 : 159;
}

void read_user_data(bit_reader_t& reader, uint8_t data_coding, bool with_header, size_t highest) {
    const size_t length = reader.octet();
    const size_t count = alphabet_of(data_coding) == alphabet_t::gsm7 ? (length * 7 + 7) / 8 : length;
    const octets_view_t octets = reader.octets(count);
    if (count > highest || (with_header && !split_user_data(octets))) {
        reader.fail();
    }
}

}  // namespace

bool is_deliver_report(octets_view_t octets, deliver_report_t kind) {
    bit_reader_t reader(octets);
    const uint8_t first = reader.octet();
    if (kind == deliver_report_t::of_error && reader.octet() < lowest_cause) {
        return false;
    }
    const uint8_t fields = reader.octet();
    for (uint8_t more = fields; (more & bit_extension) != 0;) {
        more = reader.octet();
    }
    if ((fields & bit_protocol_identifier) != 0) {
        reader.octet();
    }
    const uint8_t data_coding = (fields & bit_data_coding) != 0 ? reader.octet() : uint8_t{0};
    if ((fields & bit_user_data) != 0) {
        read_user_data(reader, data_coding, (first & bit_header) != 0, max_user_data_of(kind));
    }
    return (first & type_mask) == 0 && !reader.failed() && reader.left() == 0;
}

}  // namespace air
