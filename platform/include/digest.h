/// The message digest of the platform.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// MD5 (RFC 1321) of `size` octets; the digest's octets in the order in which RFC 1321 outputs them.
std::array<uint8_t, 16> md5_digest(const void* octets, size_t size);
