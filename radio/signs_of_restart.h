/// What shows that a modem has restarted without hanging up, and has forgotten what it was told. Pure functions.
#pragma once

#include <string_view>

#include "radio/result_codes.h"

namespace radio {

/// Unasked: it says so, as modems of several makers do in words of their own.
bool announces_start(std::string_view line);
/// Unasked: the state of the SIM, as after a start.
bool tells_sim_state(std::string_view line);
/// In place of an answer: the SIM is locked, busy or not there (3GPP TS 27.005 3.2.5, 3GPP TS 27.007 9.2).
bool tells_sim_state(const final_result_t& result);
/// A line that only ever answers a command, and therefore that of another when nobody has asked.
bool is_reply_alone(std::string_view line);

}  // namespace radio
