// Packets of the device socket: what is accepted is put together to the same octets again.
#include "device/device_socket.h"

#include <algorithm>

#include "device/packet.h"
#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace device;
    const octets_view_t packet(data, size);
    if (const auto request = decode_request(packet)) {
        must(std::ranges::equal(encode(*request), packet));
    }
    if (const auto reply = decode_reply(packet)) {
        must(decode_reply(encode(*reply))->output == reply->output);
    }
    base::reader_t reader(packet);
    while (!reader.at_end()) {
        reader.octet();
        reader.string();
        reader.u32();
    }
    return 0;
}
