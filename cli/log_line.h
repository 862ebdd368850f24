/// The lines of the driver's log. A message takes two, with other threads' lines between them as may be:
///
///     [monotonic=n/a (TZ=n/a,GMT) 2026-01-31 12:00:00 'ZPD'] [0x1A2B,0x1A2B] ERROR at sender.cpp:70 in daemon_t::send:
///     [monotonic=n/a (TZ=n/a,GMT) 2026-01-31 12:00:00 'ZPD'] [0x1A2B,0x1A2B] -- what is the matter
///
/// or the first alone, then without the colon at its end. What clients and phones say stands in it as it came, line
/// ends too: there may be lines of any form.
#pragma once

#include <map>
#include <string>
#include <string_view>

struct log_line_t {
    std::string time;    // UTC; this and the next are empty in a line of another form
    std::string thread;  // its number, hexadecimal
    int level = 0;       // 1 (internal error) to 7 (debug); 0 if nothing tells
    std::string text;    // from the level on, or the message
};

/// Reads lines in their order, which tells the levels of those that say nothing of it themselves: that of the thread's
/// first line in the second, and that of the line before in one of another form.
class log_reader_t {
  public:
    log_line_t read(std::string_view line);

  private:
    int level_of(const log_line_t& line, bool is_second);

    std::map<std::string, int> begun_;  // levels, by the threads of which a second line is to come
    int last_level_ = 0;
};
