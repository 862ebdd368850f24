/// What a reply of the service comes to.
#pragma once

#include <cstdint>

#include "client/errors.h"
#include "device/packet.h"

namespace client {

/// That the service, or the driver behind it, refused the request.
failure_t refused(uint32_t error);

/// The output of a request with this code that was granted, or why it was refused.
answer_t<device::octets_t> output_of(uint32_t code, device::reply_t reply);

}  // namespace client
