#include "client/replies.h"

#include <string>
#include <utility>

#include "com/zpd/zpd_ioctl.h"
#include "device/device_socket.h"
#include "device/service_requests.h"

namespace client {

// The service itself answers a client that it does not serve with one of the first two.
failure_t refused(uint32_t error) {
    const obstacle_t obstacle = error == device::error_busy ? obstacle_t::busy
                                : error == ZPD_ERROR_ACCESS ? obstacle_t::access
                                                            : obstacle_t::request;
    return {error, error_words(error), obstacle};
}

answer_t<device::octets_t> output_of(uint32_t code, device::reply_t reply) {
    if (reply.result) {
        return std::move(reply.output);
    }
    const bool tells_why = (code & device::service_request_mask) == device::service_request_type;
    if (tells_why && !reply.output.empty()) {
        return failure_t{reply.last_error, {reply.output.begin(), reply.output.end()}, obstacle_t::request};
    }
    return refused(reply.last_error);
}

}  // namespace client
