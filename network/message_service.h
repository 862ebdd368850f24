/// The message service of a modem, 3GPP TS 27.005; on CDMA a PDU is a whole point-to-point message, and there is no
/// text mode. Its settings, submission, and the three ways of reception (stored silently, stored and indicated, handed
/// to the host directly). Not thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "network/at_server.h"
#include "network/faults.h"
#include "network/message_memories.h"
#include "network/service_centre.h"
#include "network/sim.h"
#include "network/text_mode.h"

namespace network {

class message_service_t : public receiver_t {
  public:
    /// All references outlive the object; `dialogue` is where unsolicited result codes go.
    message_service_t(std::string number, service_centre_t& service_centre, at_server_t& dialogue,
                      const coverage_t& coverage, const sim_t& sim, const character_set_t& character_set,
                      faults_t& faults);

    /// None when the command is not of the message service.
    std::optional<at_result_t> execute(const at_command_t& command, at_lines_t& lines);
    /// The PDU, text or report that AT+CMGS, AT+CMGW or AT+CNMA asked for.
    at_result_t execute_text(std::string_view text, at_lines_t& lines);
    /// Names of its commands, for +CLAC.
    static void list_commands(at_lines_t& lines);
    void reset_settings();

    air_form_t form() const override {
        return coverage_.on_cdma() ? air_form_t::cdma_point_to_point : air_form_t::gsm_tpdu;
    }
    taken_t deliver(const air_message_t& message) override;
    /// When, on base::tick64, the host must have acknowledged a direct delivery.
    std::optional<uint64_t> deadline() const { return acknowledge_until_; }
    /// To be called at or after the deadline.
    void pass_deadline();

    message_memories_t& memories() { return memories_; }
    const message_memories_t& memories() const { return memories_; }

  private:
    struct command_t;
    static const command_t commands[];

    struct settings_t {
        unsigned service = 0;                   // +CSMS
        std::array<unsigned, 5> indications{};  // +CNMI: <mode>, <mt>, <bm>, <ds>, <bfr>
        unsigned more_messages = 0;             // +CMMS
    };
    /// What the text that is being entered is for.
    struct entry_t {
        enum class use_t { submission, storage, acknowledgement, refusal };
        use_t use = use_t::submission;
        size_t length = 0;  // of the message, or of the report
        message_status_t status = message_status_t::unsent;
        std::optional<air::address_t> destination;  // of a text; without it a PDU follows
    };

    at_result_t csms(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgf(const at_command_t& command, at_lines_t& lines);
    at_result_t csca(const at_command_t& command, at_lines_t& lines);
    at_result_t cnmi(const at_command_t& command, at_lines_t& lines);
    at_result_t cmms(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgs(const at_command_t& command, at_lines_t& lines);
    at_result_t cmss(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgw(const at_command_t& command, at_lines_t& lines);
    at_result_t cnma(const at_command_t& command, at_lines_t& lines);
    // A command that is about the memories alone.
    template <auto run>
    at_result_t of_memories(const at_command_t& command, at_lines_t& lines) {
        return (memories_.*run)(command, lines);
    }
    // A setting of text mode.
    template <auto run>
    at_result_t of_text_mode(const at_command_t& command, at_lines_t& lines) {
        return (text_mode_.*run)(command, lines);
    }

    bool in_text_mode() const { return text_mode_.on() && form() == air_form_t::gsm_tpdu; }
    std::optional<air::address_t> destination(const at_parameters_t& parameters, size_t index) const;
    at_result_t cmgs_text(const at_parameters_t& parameters);
    at_result_t cmgw_text(const at_parameters_t& parameters);
    std::optional<air_message_t> entered_message(std::string_view text) const;

    at_result_t take_report(std::string_view text);
    at_result_t submit(std::string_view command, air_message_t message, submission_t submission, at_lines_t& lines);
    void trace(const air_message_t& message, trace_direction_t direction) const;
    taken_t receive(const air_message_t& message);
    taken_t store_delivery(const air_message_t& message, bool announce);
    taken_t deliver_directly(const air_message_t& message);
    void hand_over(const air_message_t& message);
    void end_pending(bool accepted);

    const std::string number_;
    service_centre_t& service_centre_;
    at_server_t& dialogue_;
    const coverage_t& coverage_;
    const sim_t& sim_;
    faults_t& faults_;
    text_mode_t text_mode_;
    message_memories_t memories_;
    settings_t settings_;
    std::string service_centre_number_;  // +CSCA; kept over a power cycle, as on a SIM
    entry_t entry_;
    uint8_t next_reference_ = 0;  // TP-MR, kept over a power cycle (3GPP TS 23.040 9.2.3.6)
    std::optional<uint64_t> acknowledge_until_;
    bool full_told_ = false;  // since a message has found a place
};

}  // namespace network
