/// Request buffers, written and read octet by octet: little-endian values, one after another.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "com/miscio/text.h"

inline std::string u8(unsigned value) {
    return {static_cast<char>(value)};
}

inline std::string u32(int64_t value) {
    std::string octets;
    for (int shift = 0; shift < 32; shift += 8) {
        octets += static_cast<char>(value >> shift);
    }
    return octets;
}

inline std::string text(std::string_view octets) {
    return u32(static_cast<int64_t>(octets.size())) + std::string(octets);
}

inline std::string text16(wide_view_t units) {
    std::string octets;
    for (const WCHAR unit : units) {
        octets += static_cast<char>(unit);
        octets += static_cast<char>(unit >> 8);
    }
    return text(octets);
}

inline uint32_t u32_at(std::string_view octets, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<uint8_t>(octets.at(offset + i));
    }
    return value;
}
