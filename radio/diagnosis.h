/// What a modem is, and what would keep cards from being sent or received through it.
///
/// Asks only, and leaves the modem as it was: what an answer needs changed (echo, the form of error codes, the memory
/// that is looked into) is put back; results are told, and in words, from then on (V.250 6.2.5, 6.2.6). No PIN is
/// entered, and no message read, listed or deleted.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "radio/at_values.h"
#include "radio/attach_modem.h"
#include "radio/findings.h"

namespace radio {

/// Texts are empty where the modem does not tell. Those from the modem are as it sent them: not fit for a terminal.
struct diagnosis_t {
    std::string maker;
    std::string model;
    std::string revision;
    std::string serial_number;
    std::string sim;
    std::optional<int> pin_tries;  // left, where the SIM waits for its PIN
    std::string registration;
    std::string operator_name;
    std::string technology;
    std::optional<int> signal;           // dBm
    std::vector<memory_use_t> memories;  // those that the radio would look into
    std::string receiving_memory;        // where new messages go
    std::string service_centre;          // its number
    std::string delivery;                // how messages will come
    std::vector<std::string> offers;     // the replies on which the choice of it rests
    std::vector<finding_t> findings;     // causes before consequences

    /// Cards can be sent and received.
    [[nodiscard]] bool usable() const;
};

/// Of the options, the tty, its line and the trace count. Takes the tty for as long as it lasts: mostly a second, and
/// some more where the modem is silent. `cancelled` is asked between the questions, and leaves out the rest of them.
diagnosis_t diagnose(const modem_options_t& options, const std::function<bool()>& cancelled);

}  // namespace radio
