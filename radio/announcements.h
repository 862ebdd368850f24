/// How the modem tells of new messages (AT+CNMI, AT+CSMS, 3GPP TS 27.005 3.4.1 and 3.2.1): chosen from what it offers,
/// or by the user, and looked after from then on. Used on the modem's thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "radio/at_values.h"
#include "radio/attach_modem.h"
#include "radio/modem_state.h"
#include "radio/setup_inquiry.h"

namespace radio {

/// What the modem offers, as it told it; empty where it did not.
struct announcement_offers_t {
    std::string announcements;  // +CNMI
    std::string services;       // +CSMS

    /// The best of them. Direct delivery only where it is acknowledged: `acknowledged` is whether the modem took
    /// that, if it has been asked.
    [[nodiscard]] announcement_t best(bool acknowledged) const;
    [[nodiscard]] bool may_acknowledge() const;
};
/// None when the inquiry is over.
std::optional<announcement_offers_t> ask_announcement_offers(inquiry_t& inquiry);

class announcements_t {
  public:
    /// All outlive the object.
    announcements_t(modem_link_t& link, const modem_options_t& options, modem_board_t& board)
        : link_(link), options_(options), board_(board) {}

    void forget();
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry);
    /// Asks whether the modem still announces what it was set up to announce; true when it has stopped, as one does
    /// that misses an acknowledgement, or restarts without a hang-up, and then has lost every other setting, too.
    [[nodiscard]] bool have_stopped();

    /// Asks for them once more: a modem that missed an acknowledgement has stopped them (3GPP TS 27.005 3.4.4).
    void renew();

    /// A message that is delivered directly waits for AT+CNMA.
    [[nodiscard]] bool are_acknowledged() const { return acknowledged_; }

  private:
    [[nodiscard]] bool set_up_offered(setup_inquiry_t& inquiry);
    [[nodiscard]] bool set_up_wanted(setup_inquiry_t& inquiry);
    [[nodiscard]] bool choose_service(setup_inquiry_t& inquiry, const std::string& offered, announcement_t::way_t way);
    [[nodiscard]] bool choose(setup_inquiry_t& inquiry, const std::vector<announcement_t>& preferred);
    void tell();

    modem_link_t& link_;
    const modem_options_t& options_;
    modem_board_t& board_;
    announcement_t chosen_;
    bool acknowledged_ = false;
    std::string told_;
};

}  // namespace radio
