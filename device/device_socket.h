/// The device as a Unix-domain SOCK_SEQPACKET socket: one connection is one open of the device, one packet one control
/// request. This header is the wire format that the device manager and its clients share.
///
///   request   u32 code, u32 output capacity, then the input octets
///   reply     u32 result (0 or 1), u32 last error, u32 count returned, then that many output octets
///
/// All u32 little-endian. A packet that is too short, too long, or asks for more output than allowed is answered with
/// result 0 and `error_malformed`; the connection stays open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace device {

inline constexpr size_t max_input = 65536;
inline constexpr size_t max_output = 65536;
inline constexpr size_t request_header = 8;
inline constexpr size_t reply_header = 12;

/// The errors of the service itself, by their Win32 numbers: ERROR_INVALID_PARAMETER, ERROR_BUSY.
inline constexpr uint32_t error_malformed = 87;
inline constexpr uint32_t error_busy = 170;

inline constexpr std::string_view default_device = "ZPD1";

/// Where a device's socket lies: a name with a slash is a path as it is, any other is a file of that name in the user's
/// runtime folder ($XDG_RUNTIME_DIR/zpd, else /tmp/zpd-<uid>).
std::filesystem::path path_of(std::string_view device);

}  // namespace device
