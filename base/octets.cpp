#include "base/octets.h"

namespace base {

std::optional<octets_view_t> reader_t::take(size_t count) {
    if (count > left_.size()) {
        left_ = {};
        return std::nullopt;
    }
    const octets_view_t taken = left_.first(count);
    left_ = left_.subspan(count);
    return taken;
}

std::optional<uint8_t> reader_t::octet() {
    const auto taken = take(1);
    return taken ? std::optional<uint8_t>((*taken)[0]) : std::nullopt;
}

std::optional<uint32_t> reader_t::u32() {
    const auto taken = take(4);
    if (!taken) {
        return std::nullopt;
    }
    const octets_view_t& octets = *taken;
    return octets[0] | uint32_t{octets[1]} << 8 | uint32_t{octets[2]} << 16 | uint32_t{octets[3]} << 24;
}

std::optional<uint64_t> reader_t::u64() {
    const auto low = u32();
    const auto high = u32();
    return high ? std::optional(uint64_t{*high} << 32 | *low) : std::nullopt;
}

std::optional<std::string> reader_t::string() {
    const auto count = u32();
    const auto taken = count ? take(*count) : std::nullopt;
    if (!taken) {
        return std::nullopt;
    }
    return std::string(taken->begin(), taken->end());
}

octets_view_t reader_t::rest() {
    const octets_view_t all = left_;
    left_ = {};
    return all;
}

writer_t& writer_t::octet(uint8_t value) {
    octets_.push_back(value);
    return *this;
}

writer_t& writer_t::u32(uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        octet(static_cast<uint8_t>(value >> shift));
    }
    return *this;
}

writer_t& writer_t::u64(uint64_t value) {
    return u32(static_cast<uint32_t>(value)).u32(static_cast<uint32_t>(value >> 32));
}

writer_t& writer_t::string(std::string_view text) {
    u32(static_cast<uint32_t>(text.size()));
    octets_.insert(octets_.end(), text.begin(), text.end());
    return *this;
}

writer_t& writer_t::string16(std::u16string_view text) {
    u32(static_cast<uint32_t>(text.size() * 2));
    for (const char16_t unit : text) {
        octet(static_cast<uint8_t>(unit)).octet(static_cast<uint8_t>(unit >> 8));
    }
    return *this;
}

writer_t& writer_t::raw(octets_view_t octets) {
    octets_.insert(octets_.end(), octets.begin(), octets.end());
    return *this;
}

}  // namespace base
