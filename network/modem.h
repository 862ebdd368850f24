/// A modem for GSM, what came after it, and CDMA as its host sees it through AT commands: identity, SIM, registration
/// (3GPP TS 27.007), the message service (3GPP TS 27.005), and what is no SMS (other_commands.h). No I/O: octets go in
/// and out through dialogue(). Not thread-safe.
#pragma once

#include <string>
#include <string_view>

#include "network/at_server.h"
#include "network/character_set.h"
#include "network/faults.h"
#include "network/message_service.h"
#include "network/other_commands.h"
#include "network/sim.h"

namespace network {

class modem_t : public at_commands_t {
  public:
    /// `service_centre` outlives the modem.
    modem_t(const std::string& number, access_technology_t technology, service_centre_t& service_centre);
    ~modem_t() override = default;
    modem_t(const modem_t&) = delete;
    modem_t& operator=(const modem_t&) = delete;

    at_server_t& dialogue() { return dialogue_; }
    message_service_t& messages() { return messages_; }
    const message_service_t& messages() const { return messages_; }
    /// When, on base::tick64, pass_deadline has something to do.
    std::optional<uint64_t> deadline() const;
    void pass_deadline();
    faults_t& faults() { return faults_; }
    const faults_t& faults() const { return faults_; }
    sim_t& sim() { return sim_; }
    const sim_t& sim() const { return sim_; }
    /// What it is on unless a fault says otherwise.
    access_technology_t own_technology() const { return own_technology_; }
    /// What the network gives it; without the SIM's PIN, or with its radio off, it takes none of it.
    const coverage_t& offered_coverage() const { return offered_coverage_; }
    const coverage_t& coverage() const { return coverage_; }
    /// Tells the host, when it asked to be told (+CREG and its like).
    void set_coverage(const coverage_t& coverage);
    /// To be called after a change of the SIM; tells the host likewise.
    void update_coverage();
    /// Forgets settings and half-entered lines; keeps faults, coverage and stored messages.
    void power_on();

    at_result_t execute(const at_command_t& command, at_lines_t& lines) override;
    at_result_t execute_text(std::string_view text, at_lines_t& lines) override;
    void reset_settings() override;

  private:
    static constexpr unsigned full_functionality = 1;

    struct command_t;
    static const command_t commands[];

    /// <n> of the three registration commands: 0 silent, 1 tells of changes, 2 also where.
    struct reports_t {
        unsigned creg = 0;
        unsigned cgreg = 0;
        unsigned cereg = 0;
    };

    at_result_t identify(const at_command_t& command, at_lines_t& lines);
    at_result_t creg(const at_command_t& command, at_lines_t& lines);
    at_result_t cad(const at_command_t& command, at_lines_t& lines);
    at_result_t css(const at_command_t& command, at_lines_t& lines);
    at_result_t cops(const at_command_t& command, at_lines_t& lines);
    at_result_t cpin(const at_command_t& command, at_lines_t& lines);
    at_result_t cpinr(const at_command_t& command, at_lines_t& lines);
    at_result_t csq(const at_command_t& command, at_lines_t& lines);
    at_result_t cnum(const at_command_t& command, at_lines_t& lines);
    at_result_t cfun(const at_command_t& command, at_lines_t& lines);
    at_result_t cscs(const at_command_t& command, at_lines_t& lines);
    at_result_t clac(const at_command_t& command, at_lines_t& lines);

    std::string operator_name(size_t format) const;
    unsigned& reports_of(std::string_view name);
    std::string registration(std::string_view name, unsigned detail) const;
    std::string technology() const;

    const std::string number_;
    const access_technology_t own_technology_;
    coverage_t offered_coverage_{.technology = own_technology_};
    coverage_t coverage_ = offered_coverage_;  // what it has of that
    sim_t sim_;
    faults_t faults_;
    at_server_t dialogue_;
    message_service_t messages_;
    reports_t reports_;
    unsigned functionality_ = full_functionality;           // +CFUN
    unsigned operator_format_ = 0;                          // +COPS
    character_set_t character_set_ = character_set_t::gsm;  // +CSCS
    other_commands_t others_{{number_, coverage_, sim_, faults_, character_set_}};
};

}  // namespace network
