/// Lengths of time as people write and read them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace base {

inline constexpr uint64_t seconds_a_day = uint64_t{24} * 60 * 60;

/// "90s", "1m30s", "2h", "1500ms", "0s", the larger units first: the milliseconds, at most those of ten years; none for
/// anything else.
std::optional<uint64_t> read_milliseconds(std::string_view text);

/// The same, of whole seconds that are more than 0: "90m", "36h", "2d", "30s".
std::optional<uint64_t> read_duration(std::string_view text);

/// "42 s", "3 min", "36 h", "4 days": not more exact than people want it.
std::string duration_words(uint64_t seconds);

}  // namespace base
