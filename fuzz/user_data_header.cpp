// The driver's side of the air: headers of received datagrams, and their reassembly (3GPP TS 23.040 9.2.3.24). The
// radio reads a header as the driver does.
#include "com/sms/sms.h"
#include "com/sms/sms_udh.h"
#include "fuzz/fuzz.h"
#include "radio/assembly.h"

namespace {

void header_there_and_back(octet_view_t octets) {
    sms_udh_t header;
    if (header.parse_udh(octets) && !header.ies.empty()) {
        const octet_string_t whole = header.str();
        sms_udh_t again;
        must(again.parse_udh(octet_view_t(whole).substr(1)));
        must(again.str() == whole);
    }
}

void both_read_the_same(octet_view_t octets) {
    sms_udh_t header;
    const bool valid = header.parse_udh(octets);
    const sms_udh_ie_concat_t* const element = header.concatenation();
    const auto place = radio::assembly::place_of({reinterpret_cast<const uint8_t*>(octets.data()), octets.size()});
    must(place.has_value() == (valid && (element == nullptr || element->ordinal() <= element->amount())));
    if (place && element != nullptr) {
        must(place->reference == element->id() && place->part == element->ordinal() &&
             place->parts == element->amount());
        must(place->width == (element->max_id() > 255 ? 2 : 1));
    } else if (place) {
        must(place->width == 0 && place->parts == 1);
    }
}

/// Records out of one input: the length of a header, the header, and an octet of data.
void reassemble(octet_view_t octets) {
    sms_message_t message;
    while (octets.size() > 1 && !message.is_complete()) {
        const size_t length = std::min<size_t>(static_cast<uint8_t>(octets[0]) % 16, octets.size() - 2);
        auto record = std::make_unique<incoming_datagram>();
        record->address = "+1";
        record->data = octets.substr(length + 1, 1);
        record->header.parse_udh(octets.substr(1, length));
        must(message.add_datagram(record) == (record == nullptr));
        octets.remove_prefix(length + 2);
    }
    must(message.is_complete() != message.get_concatenated_data().empty());
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const octet_string_t octets(data, data + size);
    header_there_and_back(octets);
    both_read_the_same(octets);
    reassemble(octets);
    return 0;
}
