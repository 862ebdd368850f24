/// What hosts ask of a modem besides short messages, 3GPP TS 27.007 and V.250: a telephone that is there and idle. One
/// table answers plausibly, remembers what is set, and changes nothing; only what the network says of the modem is true
/// (service, signal, SIM). Not thread-safe.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "network/at_server.h"
#include "network/character_set.h"
#include "network/faults.h"
#include "network/sim.h"

namespace network {

/// What the answers depend on. The references outlive the object.
struct modem_state_t {
    const std::string& number;
    const coverage_t& coverage;
    const sim_t& sim;
    const faults_t& faults;
    const character_set_t& character_set;
};

class other_commands_t {
  public:
    explicit other_commands_t(const modem_state_t& modem) : modem_(modem) {}

    /// None when the command is none of these.
    std::optional<at_result_t> execute(const at_command_t& command, at_lines_t& lines);
    static void list_commands(at_lines_t& lines);
    void reset_settings();

    /// What is to be said once the command that asked for it has its result: the network's answer to a service code.
    std::optional<std::string> take_unsolicited();
    bool has_unsolicited() const { return unsolicited_.has_value(); }

  private:
    struct command_t;
    static const command_t commands[];

    at_result_t execute(const command_t& known, const at_command_t& command, at_lines_t& lines);
    at_result_t set(const command_t& known, const std::string& value);
    at_result_t cgatt(const at_command_t& command, at_lines_t& lines);
    at_result_t cclk(const at_command_t& command, at_lines_t& lines);
    at_result_t clck(const at_command_t& command, at_lines_t& lines);
    at_result_t cind(const at_command_t& command, at_lines_t& lines);
    at_result_t cgdcont(const at_command_t& command, at_lines_t& lines);
    at_result_t crsm(const at_command_t& command, at_lines_t& lines);
    at_result_t ccid(const at_command_t& command, at_lines_t& lines);
    at_result_t cusd(const at_command_t& command, at_lines_t& lines);

    const modem_state_t modem_;
    std::map<std::string_view, std::string> settings_;  // by command: what it was set to
    bool attached_ = true;                              // +CGATT
    bool shows_answers_ = false;                        // +CUSD
    std::optional<std::string> unsolicited_;
};

}  // namespace network
