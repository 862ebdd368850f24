/// The lines that a long-running process writes to whoever runs it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string_view>

namespace base {

/// What a line is worth, numbered as syslog(3) and systemd's journal do.
enum class priority_t : uint8_t { error = 3, warning = 4, info = 6 };

/// Writes the text as one line, safe for a terminal, and flushes: on a terminal with the time before it, into systemd's
/// journal, which knows the time, with the priority (sd-daemon(3)), elsewhere as it is.
void tell_line(std::FILE* stream, priority_t priority, std::string_view text);

}  // namespace base
