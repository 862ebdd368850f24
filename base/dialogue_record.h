/// What a modem and its host say to each other, as lines of text: what the host says stands behind ">", what the modem
/// says behind "<", or behind "!" once the command has its result; above a line, where it has changed, the time as a
/// comment, seconds since the beginning. `\r`, `\n`, `\x20` stand for octets that cannot be written, "^Z" before a text
/// for its end. The digits of a PIN are not in it, "****" are. Not thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/clock.h"

namespace base {

class dialogue_record_t {
  public:
    /// Whether a line, without its ends, is the result of a command.
    using is_result_t = bool (*)(std::string_view line);
    explicit dialogue_record_t(is_result_t is_result) : is_result_(is_result) {}

    /// What went over the line, in pieces of any size.
    void host_says(std::string_view octets);
    void modem_says(std::string_view octets);
    /// Nothing more comes of the modem's line that has not ended.
    void end_line();
    /// The lines since the last call.
    std::string take();

  private:
    void end_command();
    void add_line(std::string_view mark, const std::string& text);

    const is_result_t is_result_;
    const uint64_t begun_at_ = tick64();
    std::string lines_;
    std::string command_, answer_;  // that have not ended
    bool pin_said_ = false;         // in the latest command
    bool answered_ = false;         // the latest command has its result
    uint64_t told_ = UINT64_MAX;    // the time of the last line, milliseconds
};

}  // namespace base
