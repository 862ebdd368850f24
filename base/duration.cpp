#include "base/duration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace base {

namespace {

constexpr uint64_t milliseconds_a_second = 1000;

struct unit_t {
    std::string_view letters;
    uint64_t milliseconds;
    std::string_view words;
};

constexpr std::array<unit_t, 5> units{{{"d", seconds_a_day* milliseconds_a_second, "days"},
                                       {"h", 3600 * milliseconds_a_second, "h"},
                                       {"m", 60 * milliseconds_a_second, "min"},
                                       {"s", milliseconds_a_second, "s"},
                                       {"ms", 1, ""}}};

}  // namespace

std::optional<uint64_t> read_milliseconds(std::string_view text) {
    constexpr uint64_t most = 3650 * seconds_a_day * milliseconds_a_second;
    if (text.empty()) {
        return std::nullopt;
    }
    uint64_t sum = 0;
    for (const auto* next = units.begin(); !text.empty(); ++next) {
        uint64_t count = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        const std::string_view letters = text.substr(0, text.find_first_of("0123456789"));
        next = std::find_if(next, units.end(), [&](const unit_t& unit) { return unit.letters == letters; });
        if (error != std::errc() || next == units.end() || count > (most - sum) / next->milliseconds) {
            return std::nullopt;
        }
        sum += count * next->milliseconds;
        text.remove_prefix(letters.size());
    }
    return sum;
}

std::optional<uint64_t> read_duration(std::string_view text) {
    const uint64_t milliseconds = read_milliseconds(text).value_or(0);
    const bool is_usable = milliseconds > 0 && milliseconds % milliseconds_a_second == 0;
    return is_usable ? std::optional(milliseconds / milliseconds_a_second) : std::nullopt;
}

std::string duration_words(uint64_t seconds) {
    const auto* const fitting = std::ranges::find_if(units, [&](const unit_t& unit) {
        return unit.milliseconds == milliseconds_a_second || seconds * milliseconds_a_second >= 2 * unit.milliseconds;
    });
    return fmt::format("{} {}", seconds * milliseconds_a_second / fitting->milliseconds, fitting->words);
}

}  // namespace base
