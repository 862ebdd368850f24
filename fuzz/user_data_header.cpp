// The driver's side of the air: headers of received datagrams, and their reassembly (3GPP TS 23.040 9.2.3.24).
#include "com/sms/sms.h"
#include "com/sms/sms_udh.h"
#include "fuzz/fuzz.h"

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

/// Records out of one input: the length of a header, the header, and an octet of data.
void reassemble(octet_view_t octets) {
    sms_message_t message;
    while (octets.size() > 1 && !message.is_complete()) {
        const size_t length = std::min<size_t>(static_cast<uint8_t>(octets[0]) % 16, octets.size() - 2);
        auto record = std::make_unique<incoming_datagram>();
        record->address = "+1";
        record->data = octets.substr(length + 1, 1);
        record->header = std::make_unique<sms_udh_t>();
        record->header->parse_udh(octets.substr(1, length));
        must(message.add_datagram(record) == (record == nullptr));
        octets.remove_prefix(length + 2);
    }
    must(message.is_complete() != message.get_concatenated_data().empty());
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const octet_string_t octets(data, data + size);
    header_there_and_back(octets);
    reassemble(octets);
    return 0;
}
