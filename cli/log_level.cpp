#include "cli/log_level.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, most_log_level> level_names{
    "INTERNAL ERROR", "CRITICAL ERROR", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};

template <typename matches_t>
int level_where(matches_t matches) {
    const auto* const found = std::ranges::find_if(level_names, matches);
    return found == level_names.end() ? 0 : static_cast<int>(found - level_names.begin()) + 1;
}

/// As it stands in the table.
char upper(char letter) {
    if (letter == '-' || letter == '_') {
        return ' ';
    }
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

}  // namespace

int log_level_at_front(std::string_view text) {
    return level_where([text](std::string_view name) { return text.starts_with(name); });
}

std::string log_level_name(int level) {
    std::string name(level_names.at(static_cast<size_t>(level) - 1));
    std::ranges::transform(name, name.begin(), [](char c) { return c == ' ' ? c : static_cast<char>(c - 'A' + 'a'); });
    return name;
}

std::optional<int> log_level_of(std::string_view text) {
    if (text.size() == 1 && text[0] >= '1' && text[0] < '1' + most_log_level) {
        return text[0] - '0';
    }
    const int level = level_where([text](std::string_view name) { return std::ranges::equal(text, name, {}, upper); });
    return level == 0 ? std::nullopt : std::optional(level);
}

std::string log_levels_help() {
    std::string help;
    for (int level = 1; level <= most_log_level; ++level) {
        help += (level == 1 ? "" : ", ") + std::to_string(level) + " " + log_level_name(level);
    }
    return help;
}
