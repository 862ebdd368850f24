/// The questions of one set-up. After a start the SIM is busy for a while, and with it every command that needs it:
/// such a question is asked again for as long as a SIM may take. A modem that hangs up, falls silent or stays busy ends
/// the set-up. Used on the modem's thread.
#pragma once

#include <cstdint>
#include <string>

#include "radio/inquiry.h"
#include "radio/modem_link.h"

namespace radio {

class setup_inquiry_t : public inquiry_t {
  public:
    /// `tty` is the name under which the user knows the modem. Both outlive the object.
    setup_inquiry_t(modem_link_t& link, const std::string& tty);

    [[nodiscard]] std::optional<reply_t> ask(const std::string& line, std::string_view prefix = {}) override;
    /// A moment for the SIM; false when there is no time left.
    bool wait_for_sim();
    /// The same for a SIM of which the modem says that there is none: just after a start it has not found it yet.
    bool wait_for_sim_to_appear();

    /// Ends the set-up with this failure; false, so that a step can return it.
    bool fail(std::string text);
    /// The same of a text that goes on after "the modem on TTY".
    bool fail_modem(const std::string& text);
    /// Empty as long as nothing has failed.
    [[nodiscard]] const std::string& failure() const { return failure_; }

    modem_link_t& link() { return link_; }
    const std::string& tty() const { return tty_; }

  private:
    modem_link_t& link_;
    const std::string& tty_;
    const uint64_t begun_at_;  // tick64
    bool sim_wait_told_ = false;
    std::string failure_;
};

}  // namespace radio
