/// The SIM, made ready to be used: 3GPP TS 27.007 8.3. It gets its PIN by the rules of sim_pin.h; a PUK never. And its
/// number, as far as it holds that. Used on the modem's thread.
#pragma once

#include <optional>
#include <string>

#include "radio/attach_modem.h"
#include "radio/modem_state.h"
#include "radio/setup_inquiry.h"

namespace radio {

/// How often a PIN may still be tried, as far as the modem tells.
struct pin_tries_t {
    std::optional<int> left;

    /// One more wrong PIN would block the SIM, or it is blocked: none is entered.
    [[nodiscard]] bool too_few() const;
    /// "1 try", "2 tries"; of a number that is told.
    [[nodiscard]] std::string words() const;
};
/// Of a SIM that waits for its PIN. None when the inquiry is over.
std::optional<pin_tries_t> ask_pin_tries(inquiry_t& inquiry);

class sim_t {
  public:
    /// Both outlive the object.
    sim_t(const modem_options_t& options, modem_board_t& board) : options_(options), board_(board) {}

    /// Waits for a SIM that is busy, and gives it the PIN that it wants. `needed`: a modem without a SIM is of no use.
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry, bool needed);
    /// Asks once for the number. Many a SIM holds none, and many a modem does not tell it.
    void note_number(setup_inquiry_t& inquiry);

  private:
    enum class step_t { ready, failed, wait };
    struct entry_t {
        std::string pin;
        std::string card;  // the SIM's ICCID, if told
        reply_t reply;
    };

    void note_state(const reply_t& reply);
    step_t take_state(setup_inquiry_t& inquiry, const std::string& state);
    bool enter_pin(setup_inquiry_t& inquiry);
    bool may_enter(setup_inquiry_t& inquiry, const std::string& pin, const std::string& card,
                   const pin_tries_t& tries) const;
    bool may_wait(setup_inquiry_t& inquiry);

    const modem_options_t& options_;
    modem_board_t& board_;
    std::optional<entry_t> entry_;  // of this set-up, while the SIM's state does not show what became of it
};

}  // namespace radio
