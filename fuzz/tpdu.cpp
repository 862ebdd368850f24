// TPDUs and PDUs off the air: what is accepted is encoded to octets of the same meaning, and those to themselves (3GPP
// TS 23.040 9.2).
#include "air/tpdu.h"

#include <algorithm>

#include "fuzz/fuzz.h"

namespace {

template <auto decode, typename message_t>
void there_and_back(const message_t& message) {
    const auto octets = air::encode(message);
    must(octets && decode(*octets) == message);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const air::octets_view_t octets(data, size);
    if (const auto submit = air::decode_submit(octets)) {
        there_and_back<air::decode_submit>(*submit);
    }
    if (auto deliver = air::decode_deliver(octets)) {
        deliver->padding = 0;
        there_and_back<air::decode_deliver>(*deliver);
        const std::string number = air::number_from_address(deliver->originator);
        must(std::ranges::none_of(number, [](unsigned char letter) { return letter < 0x20 || letter == 0x7F; }));
    }
    if (const auto parts = air::split_user_data(octets)) {
        air::destination_port(parts->header);
    }
    if (const auto pdu = air::decode_pdu(octets)) {
        const auto again = air::encode_pdu(*pdu);
        must(again && air::encode_pdu(*air::decode_pdu(*again)) == again);
    }
    return 0;
}
