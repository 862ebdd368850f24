/// A target's input, taken from the front bit by bit: what happens, and with which octets. At its end there are zeros
/// and empty pieces.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

class input_t {
  public:
    input_t(const uint8_t* data, size_t size) : left_(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return left_.empty(); }
    uint8_t octet() { return static_cast<uint8_t>(empty() ? 0 : take(1)[0]); }
    /// 0 to `count` - 1.
    size_t below(size_t count) { return octet() % count; }
    uint32_t u32() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8 | octet();
        }
        return value;
    }
    /// As long as its first octet tells, at most so many.
    std::string piece(size_t most) { return take(std::min<size_t>(octet(), most)); }
    std::string rest() { return take(left_.size()); }

  private:
    std::string take(size_t count) {
        std::string taken(left_.substr(0, count));
        left_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view left_;
};

/// The texts that the product writes for people go nowhere: only the sanitizers' and libFuzzer's own are of use.
inline void silence() {
    static FILE* const nowhere = stderr = std::fopen("/dev/null", "w");
    static_cast<void>(nowhere);
}
