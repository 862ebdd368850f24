#include "com/miscio/buffer-server.h"

#include <cstring>

#include "com/qmlog/api2.h"

namespace {

uint32_t from_little_endian(const BYTE* octets) {
    return octets[0] | static_cast<uint32_t>(octets[1]) << 8 | static_cast<uint32_t>(octets[2]) << 16 |
           static_cast<uint32_t>(octets[3]) << 24;
}

}  // namespace

bool input_r_buffer_t::take(uint32_t count, const BYTE*& octets) {
    if (count > unread()) {
        position = length;
        return false;
    }
    octets = data + position;
    position += count;
    return true;
}

bool input_r_buffer_t::get_byte(uint8_t& value) {
    const BYTE* octets;
    if (!take(1, octets)) {
        return false;
    }
    value = octets[0];
    return true;
}

bool input_r_buffer_t::get_uint32(uint32_t& value) {
    const BYTE* octets;
    if (!take(4, octets)) {
        return false;
    }
    value = from_little_endian(octets);
    return true;
}

bool input_r_buffer_t::get_string(std::string& value) {
    uint32_t count;
    const BYTE* octets;
    if (!get_uint32(count) || !take(count, octets)) {
        return false;
    }
    value.assign(octets, octets + count);
    return true;
}

bool input_r_buffer_t::get_string16(wide_string_t& value) {
    uint32_t count;
    const BYTE* octets;
    if (!get_uint32(count)) {
        return false;
    }
    QM_DEBUG("input buffer len=%d; string len_bytes=%d len=%d", length, count, count / 2);
    if (!take(count, octets)) {
        return false;
    }
    value.clear();
    for (uint32_t i = 0; i + 1 < count; i += 2) {
        value += static_cast<WCHAR>(octets[i] | octets[i + 1] << 8);
    }
    QM_DEBUG("read string of length %d", static_cast<uint32_t>(value.size()));
    QM_DEBUG("read string: '%s'", narrow(value).c_str());
    QM_DEBUG("");
    return true;
}

void output_w_buffer_t::put(const BYTE* octets, uint32_t count) {
    if (count > room()) {
        written = capacity;
        overflow = true;
        return;
    }
    if (count != 0) {
        memcpy(data + written, octets, count);
    }
    written += count;
    if (returned != nullptr) {
        *returned = written;
    }
}

void output_w_buffer_t::put_uint32(uint32_t value) {
    const BYTE octets[4] = {static_cast<BYTE>(value), static_cast<BYTE>(value >> 8), static_cast<BYTE>(value >> 16),
                            static_cast<BYTE>(value >> 24)};
    put(octets, sizeof octets);
}

void output_w_buffer_t::put_string(const std::string& value) {
    put_uint32(static_cast<uint32_t>(value.size()));
    if (!overflow) {
        put(reinterpret_cast<const BYTE*>(value.data()), static_cast<uint32_t>(value.size()));
    }
}

void output_w_buffer_t::reset() {
    overflow = false;
    written = 0;
    if (returned != nullptr) {
        *returned = 0;
    }
}
