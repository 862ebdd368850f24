/// Who keeps the cards before they are sent and after they have come, and is told what becomes of them. The radio's own
/// threads call: what takes long holds up the modem.
#pragma once

#include <filesystem>
#include <string>

#include "radio/assembly.h"
#include "radio/modem_state.h"
#include "radio/result_codes.h"
#include "radio/ril_message.h"

namespace radio {

/// A datagram on its way out, as whoever handed in its message can know it.
struct outgoing_t {
    std::string number;       // "+" before an international one
    assembly::place_t place;  // of its message; of one part for a message of one datagram
    air::octets_t body;       // of the card
};
outgoing_t outgoing_of(const submission_t& submission);

/// What became of one submission of a datagram.
struct submission_outcome_t {
    enum class kind_t {
        sent,
        refused,  // by the modem or the network: `result`
        unknown,  // the modem had it, and told nothing; it is repeated under the same reference
        not_out,  // the modem is away, or on another network
    };
    kind_t kind = kind_t::sent;
    final_result_t result{};
};

class observer_t {
  public:
    virtual ~observer_t() = default;

    /// On the modem's thread, before the driver is told.
    virtual void submitted(const outgoing_t& datagram, const submission_outcome_t& outcome) = 0;
    /// Whether the message is not to be sent any more. RIL_SendMsg asks, for a driver that holds its own lock, and the
    /// modem's thread before each submission: the answer must not wait for the driver.
    virtual bool is_given_up(const outgoing_t& datagram) = 0;

    /// The driver stored a card in a file, or took it and stored none. On a thread that may call the driver.
    virtual void stored(const std::string& sender, const std::filesystem::path& file) = 0;
    virtual void dropped(const std::string& sender) = 0;

    /// The modem was lost or is back, or its network is another.
    virtual void modem_changed(const modem_state_t& state) = 0;
};

}  // namespace radio
