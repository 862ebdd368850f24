/// What network the modem is on: registration and access technology (3GPP TS 27.007 7.2, 7.3, 10.1.22 and 10.1.47; on
/// CDMA 3GPP2 C.S0017), as the kind of message that it carries and as the radio's system type. Used on the modem's
/// thread.
#pragma once

#include <ril.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "radio/at_values.h"
#include "radio/job_queue.h"
#include "radio/modem_state.h"
#include "radio/ril_message.h"
#include "radio/setup_inquiry.h"

namespace radio {

/// The kinds of network that a modem can be on.
struct networks_t {
    capabilities_t capabilities;
    std::optional<int> cdma_service;  // where it may be on CDMA, and tells it

    [[nodiscard]] bool only_cdma() const { return capabilities.cdma && !capabilities.gsm; }
    [[nodiscard]] bool on_cdma() const { return cdma_service == 1 || only_cdma(); }
};
/// None when the inquiry is over.
std::optional<networks_t> ask_networks(inquiry_t& inquiry);

class registration_watch_t {
  public:
    /// All outlive the object. `changed` is told each new system type; `jobs` gets questions that a line of the modem
    /// gives rise to.
    registration_watch_t(modem_link_t& link, job_queue_t& jobs, modem_board_t& board,
                         std::function<void(DWORD)> changed);

    /// What was known of a modem that is set up anew.
    void forget();
    [[nodiscard]] bool set_up_technology(setup_inquiry_t& inquiry);
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry);

    /// Takes an unsolicited line; false when it tells of no registration.
    bool take(const std::string& line);
    void query();
    /// Asks how strong the signal is, for the board.
    void query_signal();
    /// Tells the system type when it is another than before. That of a modem that is lost is none.
    void publish();

    [[nodiscard]] bool only_cdma() const { return only_cdma_; }
    [[nodiscard]] technology_t technology() const { return technology_; }
    [[nodiscard]] DWORD system_type() const { return system_type_; }

  private:
    /// Each domain is registered by itself, and any of them carries messages.
    struct domain_t {
        std::string_view name;
        int assumed_access;  // where it is registered and tells no <AcT>
        bool tells = false;
        registration_t now{};

        [[nodiscard]] bool owns(std::string_view line) const;
    };
    bool ask_to_be_told(setup_inquiry_t& inquiry, domain_t& domain) const;
    reply_t ask(const std::string& question, const std::string& prefix);
    void query_technology();
    void query_serving_system();
    void query_domain(domain_t& domain);
    void query_operator();
    [[nodiscard]] DWORD system_type_now() const;
    [[nodiscard]] const char* technology_of(const domain_t& domain) const;
    [[nodiscard]] std::vector<domain_state_t> domains_now() const;

    modem_link_t& link_;
    job_queue_t& jobs_;
    modem_board_t& board_;
    const std::function<void(DWORD)> changed_;
    std::array<domain_t, 3> domains_;
    domain_t& circuit_ = domains_[0];
    technology_t technology_ = technology_t::gsm;
    bool only_cdma_ = false;
    bool tells_service_ = false;  // +CAD: may be on a CDMA network
    bool query_due_ = false;
    DWORD system_type_ = RIL_SYSTEMTYPE_NONE;
};

}  // namespace radio
