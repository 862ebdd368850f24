/// Octets, and cursors over fields of any number of bits in them, the most significant first: whole octets in the
/// TPDUs of 3GPP, fields of few bits in the messages of 3GPP2. Values, not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace air {

using octets_t = std::vector<uint8_t>;
using octets_view_t = std::span<const uint8_t>;

/// Reads from the front. A read past the end gives 0, or nothing, and `failed()` from then on, so that a decoder checks
/// once.
class bit_reader_t {
  public:
    explicit bit_reader_t(octets_view_t octets) : octets_(octets) {}

    /// The next `count` bits, at most 16.
    uint16_t bits(size_t count) {
        if (count > left()) {
            fail();
            return 0;
        }
        unsigned value = 0;
        for (const size_t end = next_ + count; next_ < end; ++next_) {
            value = value << 1 | (octets_[next_ / 8] >> (7 - next_ % 8) & 1U);
        }
        return static_cast<uint16_t>(value);
    }
    uint8_t octet() {
        const size_t at = next_ / 8;
        if (failed_ || next_ % 8 != 0 || at >= octets_.size()) {
            return static_cast<uint8_t>(bits(8));
        }
        next_ += 8;
        return octets_[at];
    }
    /// A view of whole octets; fails in the middle of one.
    octets_view_t octets(size_t count) {
        if (next_ % 8 != 0 || count > left() / 8) {
            fail();
            return {};
        }
        const octets_view_t taken = octets_.subspan(next_ / 8, count);
        next_ += count * 8;
        return taken;
    }
    void fail() { failed_ = true; }

    [[nodiscard]] bool failed() const { return failed_; }
    /// Bits not read yet; none after a failure.
    [[nodiscard]] size_t left() const { return failed_ ? 0 : octets_.size() * 8 - next_; }

  private:
    octets_view_t octets_;
    size_t next_ = 0;
    bool failed_ = false;
};

/// Appends to octets of its own; what the last of them lacks is filled with zeros.
class bit_writer_t {
  public:
    /// The low `count` bits of the value.
    void bits(unsigned value, size_t count) {
        for (size_t bit = count; bit-- > 0; ++size_) {
            if (size_ % 8 == 0) {
                octets_.push_back(0);
            }
            octets_.back() |= static_cast<uint8_t>((value >> bit & 1U) << (7 - size_ % 8));
        }
    }
    [[nodiscard]] const octets_t& octets() const { return octets_; }

  private:
    octets_t octets_;
    size_t size_ = 0;
};

}  // namespace air
