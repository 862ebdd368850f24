/// Packets of the device socket, and the reading and writing of values in them and in the buffers of the control codes
/// (com/zpd/zpd_ioctl.h): little-endian, without padding. Reading fails by value and never goes past the end.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace device {

using octets_t = std::vector<uint8_t>;
using octets_view_t = std::span<const uint8_t>;

/// Reads values one after another; the octets stay the caller's. After a failed read nothing is left to read.
class reader_t {
  public:
    explicit reader_t(octets_view_t octets) : left_(octets) {}

    std::optional<uint8_t> octet();
    std::optional<uint32_t> u32();
    std::optional<std::string> string();
    /// All that is left.
    octets_view_t rest();
    bool at_end() const { return left_.empty(); }

  private:
    std::optional<octets_view_t> take(size_t count);

    octets_view_t left_;
};

class writer_t {
  public:
    writer_t& octet(uint8_t value);
    writer_t& flag(bool value) { return octet(value ? 1 : 0); }
    writer_t& u32(uint32_t value);
    writer_t& string(std::string_view text);
    writer_t& string16(std::u16string_view text);
    writer_t& raw(octets_view_t octets);

    const octets_t& octets() const { return octets_; }

  private:
    octets_t octets_;
};

/// `input` points into the packet.
struct request_t {
    uint32_t code = 0;
    uint32_t output_capacity = 0;
    octets_view_t input;
};
octets_t encode(const request_t& request);
/// None for a packet that is too short or too long, or asks for more output than allowed.
std::optional<request_t> decode_request(octets_view_t packet);

struct reply_t {
    bool result = false;
    uint32_t last_error = 0;
    octets_t output;
};
octets_t encode(const reply_t& reply);
/// None for a packet that is too short, or whose count disagrees with its length.
std::optional<reply_t> decode_reply(octets_view_t packet);

}  // namespace device
