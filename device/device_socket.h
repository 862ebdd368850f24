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

/// A device is told by its name or by its socket's path: what has a "/" or a "." in it is a path, as it is.
bool is_path(std::string_view device);

/// Where the devices of system services lie, each under its name. Only root can make it, or have it made for the user
/// that such a service runs as.
inline constexpr const char* system_folder = "/run/zpd";

/// Where a user's own services have theirs: $XDG_RUNTIME_DIR/zpd, else /tmp/zpd-<uid>.
std::filesystem::path user_folder();

}  // namespace device
