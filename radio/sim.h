/// The SIM, made ready to be used: 3GPP TS 27.007 8.3. A PIN is entered at most once for each value; a PUK never. Used
/// on the modem's thread.
#pragma once

#include <optional>
#include <string>

#include "radio/attach_modem.h"
#include "radio/setup_inquiry.h"

namespace radio {

/// How often a PIN may still be tried, as far as the modem tells (3GPP TS 27.007 8.65).
struct pin_tries_t {
    std::optional<int> left;

    /// One more wrong PIN would block the SIM, or it is blocked: none is entered.
    [[nodiscard]] bool too_few() const;
    /// "1 try", "2 tries"; of a number that is told.
    [[nodiscard]] std::string words() const;
};
/// None when the inquiry is over.
std::optional<pin_tries_t> ask_pin_tries(inquiry_t& inquiry);

class sim_t {
  public:
    /// The options outlive the object.
    explicit sim_t(const modem_options_t& options) : options_(options) {}

    /// Waits for a SIM that is busy, and gives it the PIN that it wants. `needed`: a modem without a SIM is of no use.
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry, bool needed);

  private:
    enum class step_t { ready, failed, wait };
    step_t take_state(setup_inquiry_t& inquiry, const std::string& state, bool& entered);
    bool enter_pin(setup_inquiry_t& inquiry);
    bool may_enter(setup_inquiry_t& inquiry, const std::string& pin) const;
    void tell_ready();

    const modem_options_t& options_;
    bool pin_entered_ = false;  // and not refused; whether it was right shows in the SIM's state
};

}  // namespace radio
