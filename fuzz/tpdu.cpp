// TPDUs and PDUs off the air: what is accepted is encoded to the same octets again (3GPP TS 23.040 9.2).
#include "air/tpdu.h"

#include <algorithm>

#include "fuzz/fuzz.h"

namespace {

template <typename message_t>
void there_and_back(const std::optional<message_t>& message, air::octets_view_t octets) {
    if (message) {
        const auto again = air::encode(*message);
        must(again && std::ranges::equal(*again, octets.first(again->size())));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const air::octets_view_t octets(data, size);
    there_and_back(air::decode_submit(octets), octets);
    const auto deliver = air::decode_deliver(octets);
    there_and_back(deliver, octets);
    if (deliver) {
        const std::string number = air::number_from_address(deliver->originator);
        must(std::ranges::none_of(number, [](unsigned char letter) { return letter < 0x20 || letter == 0x7F; }));
    }
    if (const auto parts = air::split_user_data(octets)) {
        air::destination_port(parts->header);
    }
    if (const auto pdu = air::decode_pdu(octets)) {
        const auto again = air::encode_pdu(*pdu);
        must(again && std::ranges::equal(*again, octets));
    }
    return 0;
}
