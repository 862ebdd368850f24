/// The message digest of the platform.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// MD5 (RFC 1321) of `size` octets; the digest's octets in the order in which RFC 1321 outputs them. None when the
/// platform has not the means, such as memory.
std::optional<std::array<uint8_t, 16>> md5_digest(const void* octets, size_t size);
