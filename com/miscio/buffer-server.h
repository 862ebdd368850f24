/// The buffers of a control request: values one after another, little-endian, without padding (zpd_ioctl.h).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "com/miscio/text.h"

/// Reads the caller's input buffer, which stays the caller's. A read that fails moves the position to the end, so that
/// every later read of the same request fails too; its output is left alone.
class input_r_buffer_t {
  public:
    input_r_buffer_t(const BYTE* input, uint32_t input_length) : length(input_length), data(input) {}

    [[nodiscard]] bool get_byte(uint8_t& value);
    [[nodiscard]] bool get_uint32(uint32_t& value);
    /// A byte count and as many octets.
    [[nodiscard]] bool get_string(std::string& value);
    /// A byte count and half as many code units; the last octet of an odd count is passed over.
    [[nodiscard]] bool get_string16(wide_string_t& value);
    uint32_t unread() const { return length - position; }

  private:
    bool take(uint32_t count, const BYTE*& octets);

    uint32_t length;
    uint32_t position = 0;
    const BYTE* data;
};

/// Writes the caller's output buffer and its count of returned octets (may be null). The first value that does not fit
/// sets the overflow flag, and nothing is stored from then on.
class output_w_buffer_t {
  public:
    output_w_buffer_t(BYTE* output, uint32_t output_capacity, DWORD* returned_count)
        : data(output), capacity(output_capacity), returned(returned_count) {}

    void put_byte(uint8_t value) { put(&value, 1); }
    void put_uint32(uint32_t value);
    /// The count, and if that fitted the octets.
    void put_string(const std::string& value);

    uint32_t room() const { return capacity - written; }
    uint32_t size() const { return capacity; }
    bool has_overflown() const { return overflow; }
    /// Takes everything back: nothing is returned to the caller.
    void reset();

  private:
    void put(const BYTE* octets, uint32_t count);

    BYTE* data;
    bool overflow = false;
    uint32_t capacity;
    uint32_t written = 0;
    DWORD* returned;
};

/// What every control handler gets. A handler reports failure only by storing a Win32 error code.
struct request_t {
    input_r_buffer_t input;
    output_w_buffer_t output;
    uint32_t error = ERROR_SUCCESS;

    void fail(uint32_t code) { error = code; }
};
