#include "base/hex.h"

#include <algorithm>
#include <cstring>

namespace base {
namespace {

// So many octets at a time, in loops that compilers make vector instructions of.
constexpr size_t written_octets = 16;
constexpr size_t read_octets = 32;

[[gnu::always_inline]] inline void write_block(const uint8_t* octets, char* text) {
    constexpr uint8_t to_letter = 'A' - '0' - 10;
    char digits[2 * written_octets];
    for (size_t i = 0; i < written_octets; ++i) {
        const auto high = static_cast<int8_t>(octets[i] >> 4);
        const auto low = static_cast<int8_t>(octets[i] & 0xF);
        digits[2 * i] = static_cast<char>(high + '0' + (high > 9 ? to_letter : 0));
        digits[2 * i + 1] = static_cast<char>(low + '0' + (low > 9 ? to_letter : 0));
    }
    memcpy(text, digits, sizeof digits);
}

// False when one is no digit.
bool read_block(const char* text, uint8_t* octets) {
    constexpr uint8_t no_digit = 0xFF;
    constexpr uint8_t to_small = 'a' - 'A';
    uint8_t values[2 * read_octets];
    for (size_t i = 0; i < sizeof values; ++i) {
        const auto character = static_cast<uint8_t>(text[i]);
        const auto digit = static_cast<uint8_t>(character - '0');
        const auto letter = static_cast<uint8_t>((character | to_small) - 'a');
        const uint8_t letter_value = letter < 6 ? static_cast<uint8_t>(letter + 10) : no_digit;
        values[i] = digit < 10 ? digit : letter_value;
    }
    for (size_t i = 0; i < read_octets; ++i) {
        octets[i] = static_cast<uint8_t>(values[2 * i] << 4 | values[2 * i + 1]);
    }
    uint64_t all = 0;
    for (size_t i = 0; i < sizeof values; i += sizeof all) {
        uint64_t some;
        memcpy(&some, values + i, sizeof some);
        all |= some;
    }
    return (all & 0x8080808080808080) == 0;
}

}  // namespace

std::string to_hex(std::span<const uint8_t> octets) {
    std::string text;
    append_hex(text, octets);
    return text;
}

void append_hex(std::string& text, std::span<const uint8_t> octets) {
    const size_t begin = text.size();
    text.resize(begin + 2 * octets.size());
    char* next = text.data() + begin;
    for (; octets.size() >= written_octets; octets = octets.subspan(written_octets)) {
        write_block(octets.data(), next);
        next += 2 * written_octets;
    }
    uint8_t last[written_octets] = {};
    char digits[2 * written_octets];
    std::copy(octets.begin(), octets.end(), last);
    write_block(last, digits);
    std::copy_n(digits, 2 * octets.size(), next);
}

std::optional<std::vector<uint8_t>> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    std::optional<std::vector<uint8_t>> octets(text.size() / 2);
    uint8_t* next = octets->data();
    bool valid = true;
    for (; text.size() >= 2 * read_octets; text.remove_prefix(2 * read_octets)) {
        valid = read_block(text.data(), next) && valid;
        next += read_octets;
    }
    char last[2 * read_octets];
    uint8_t values[read_octets];
    std::fill(std::copy(text.begin(), text.end(), last), std::end(last), '0');
    valid = read_block(last, values) && valid;
    std::copy_n(values, text.size() / 2, next);
    if (!valid) {
        octets.reset();
    }
    return octets;
}

}  // namespace base
