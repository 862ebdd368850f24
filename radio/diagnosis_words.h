/// States of the SIM and of the registration in plain words, with what to do about those in which no card is sent or
/// received. Pure functions; the texts are static.
#pragma once

#include <ril.h>

#include <optional>

#include "radio/at_dialogue.h"

namespace radio {

/// Without advice the state hinders nothing.
struct state_words_t {
    const char* words;
    const char* advice = "";

    [[nodiscard]] bool hinders() const { return *advice != '\0'; }
};

/// The SIM's state by the reply to AT+CPIN?, or by the error in its place; none for one that tells nothing.
std::optional<state_words_t> sim_words(const reply_t& reply);
/// <stat>, 3GPP TS 27.007 7.2.
state_words_t registration_words(int status);
/// <AcT>, 3GPP TS 27.007 7.2.
const char* technology_words(int access);
/// RIL_SYSTEMTYPE_* bits by the network that they name.
const char* system_type_words(DWORD type);

}  // namespace radio
