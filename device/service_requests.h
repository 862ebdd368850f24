/// Requests that the service answers itself, beside the driver's control codes, over the same socket and in the same
/// packets. Their codes are of a device type (the upper half) that no driver has.
#pragma once

#include <cstdint>

namespace device {

/// What the service does and has counted since it started. Input none; output a JSON object in UTF-8:
///   device, modem, home   what it was started with
///   active                whether received cards are stored; null when the driver does not say
///   cards                 { stored, dropped, kept }: dropped by the driver's settings; kept until they can be stored
///   datagrams             { incomplete, given_up }: waiting for others of their messages; dropped after a long wait
inline constexpr uint32_t service_status = 0x5A500001;

}  // namespace device
