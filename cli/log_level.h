/// The levels of the driver's log (com/qmlog/api2.h): 1 is the most urgent, 7 the least; each comes with those above
/// it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

inline constexpr int most_log_level = 7;

/// The level whose name a text begins with, as lines of the log do: "INTERNAL ERROR at …"; 0 for none.
int log_level_at_front(std::string_view text);

/// "internal error"; the level is 1 to 7.
std::string log_level_name(int level);

/// A level that a person names, "internal-error" or 1.
std::optional<int> log_level_of(std::string_view text);

/// All of them, for a command's help: "1 internal error, 2 …".
std::string log_levels_help();
