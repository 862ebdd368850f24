#include "device/packet.h"

#include "device/device_socket.h"

namespace device {

using base::reader_t;
using base::writer_t;

octets_t encode(const request_t& request) {
    return writer_t().u32(request.code).u32(request.output_capacity).raw(request.input).octets();
}

std::optional<request_t> decode_request(octets_view_t packet) {
    reader_t reader(packet);
    const auto code = reader.u32();
    const auto capacity = reader.u32();
    if (!code || !capacity || *capacity > max_output) {
        return std::nullopt;
    }
    const octets_view_t input = reader.rest();
    if (input.size() > max_input) {
        return std::nullopt;
    }
    return request_t{*code, *capacity, input};
}

octets_t encode(const reply_t& reply) {
    const auto count = static_cast<uint32_t>(reply.output.size());
    return writer_t().u32(reply.result ? 1 : 0).u32(reply.last_error).u32(count).raw(reply.output).octets();
}

std::optional<reply_t> decode_reply(octets_view_t packet) {
    reader_t reader(packet);
    const auto result = reader.u32();
    const auto last_error = reader.u32();
    const auto count = reader.u32();
    if (!result || !last_error || !count) {
        return std::nullopt;
    }
    const octets_view_t output = reader.rest();
    if (output.size() != *count) {
        return std::nullopt;
    }
    return reply_t{*result != 0, *last_error, octets_t(output.begin(), output.end())};
}

}  // namespace device
