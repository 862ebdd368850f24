/// Octets, and cursors over values in them: little-endian, without padding. Reading fails by value and never goes past
/// the end.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace base {

using octets_t = std::vector<uint8_t>;
using octets_view_t = std::span<const uint8_t>;

/// Reads values one after another; the octets stay the caller's. After a failed read nothing is left to read.
class reader_t {
  public:
    explicit reader_t(octets_view_t octets) : left_(octets) {}

    std::optional<uint8_t> octet();
    std::optional<uint32_t> u32();
    std::optional<uint64_t> u64();
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
    writer_t& u64(uint64_t value);
    writer_t& string(std::string_view text);
    writer_t& string16(std::u16string_view text);
    writer_t& raw(octets_view_t octets);

    const octets_t& octets() const { return octets_; }

  private:
    octets_t octets_;
};

}  // namespace base
