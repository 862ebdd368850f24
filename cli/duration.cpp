#include "cli/duration.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

namespace {

struct unit_t {
    char letter;
    uint64_t seconds;
    std::string_view words;
};

constexpr std::array<unit_t, 4> units{
    {{'s', 1, "s"}, {'m', 60, "min"}, {'h', 3600, "h"}, {'d', seconds_a_day, "days"}}};

}  // namespace

std::optional<uint64_t> read_duration(std::string_view text) {
    uint64_t count = 0;
    const char* const end = text.data() + text.size();
    const auto [letter, error] = std::from_chars(text.data(), end, count);
    for (const unit_t& unit : units) {
        if (error == std::errc() && letter + 1 == end && *letter == unit.letter) {
            const bool is_usable = count > 0 && count <= 3650 * seconds_a_day / unit.seconds;
            return is_usable ? std::optional(count * unit.seconds) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::string duration_words(uint64_t seconds) {
    const unit_t* fitting = units.data();
    for (const unit_t& unit : units) {
        if (seconds >= 2 * unit.seconds) {
            fitting = &unit;
        }
    }
    return fmt::format("{} {}", seconds / fitting->seconds, fitting->words);
}
