#include "cli/log_line.h"

#include <algorithm>

#include "cli/log_level.h"

namespace {

constexpr std::string_view second_line_mark = "-- ";

/// What stands before the process's name: date and time.
std::string_view time_in(std::string_view brackets) {
    constexpr size_t length = std::string_view("2026-01-31 12:00:00").size();
    const size_t end = brackets.find(" '");
    return end == std::string_view::npos || end < length ? "" : brackets.substr(end - length, length);
}

}  // namespace

log_line_t log_reader_t::read(std::string_view line) {
    const size_t thread = line.find("] [");
    const size_t rest = thread == std::string_view::npos ? thread : line.find("] ", thread + 3);
    if (!line.starts_with('[') || rest == std::string_view::npos) {
        return {.time = {}, .thread = {}, .level = last_level_, .text = std::string(line)};
    }
    std::string_view text = line.substr(rest + 2);
    const bool is_second = text.starts_with(second_line_mark);
    text.remove_prefix(is_second ? second_line_mark.size() : 0);
    log_line_t result{.time = std::string(time_in(line.substr(0, thread))),
                      .thread = std::string(line.substr(thread + 3, rest - thread - 3)),
                      .level = 0,
                      .text = std::string(text)};
    result.thread.resize(std::min(result.thread.find(','), result.thread.size()));
    result.level = last_level_ = level_of(result, is_second);
    return result;
}

int log_reader_t::level_of(const log_line_t& line, bool is_second) {
    if (is_second) {
        const auto begun = begun_.extract(line.thread);
        return begun.empty() ? 0 : begun.mapped();
    }
    const int level = log_level_at_front(line.text);
    if (line.text.ends_with(':')) {
        begun_[line.thread] = level;
    }
    return level;
}
