/// What stands against cards, or soon may, as a person is told it: by the doctor, who asks a modem, and by a service,
/// who knows its own. Pure functions, but for the clock.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "radio/modem_state.h"

namespace radio {

struct finding_t {
    bool hinders = false;  // keeps cards from being sent or received; else a warning
    std::string text;
    std::string advice;  // what to do about it; may be empty
};

/// None for one that is strong enough; in dBm.
std::optional<finding_t> about_signal(int signal);
/// Of a <stat> (3GPP TS 27.007 7.2) that is none of a registered modem.
finding_t about_registration(int status);
/// None for a memory with room in it. `receives`: new messages go there.
std::optional<finding_t> about_memory(const memory_use_t& memory, bool receives);

/// Of a modem that is in use: causes before consequences.
std::vector<finding_t> findings_of(const modem_state_t& state);

}  // namespace radio
