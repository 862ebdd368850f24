// CDMA point-to-point messages: what is accepted is encoded to a message that is equal when it is decoded again.
#include "air/cdma.h"

#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (const auto message = air::cdma::decode({data, size})) {
        const auto octets = air::cdma::encode(*message);
        must(octets.has_value());
        must(air::cdma::decode(*octets) == message);
    }
    return 0;
}
