/// Text mode of the message service, +CMGF=1 of 3GPP TS 27.005 3: its settings, the message that an entered text makes,
/// and how a message is told. For the networks of 3GPP alone. Not thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "network/at_server.h"
#include "network/character_set.h"
#include "network/message_places.h"

namespace network {

/// The word for <stat>: "REC UNREAD".
std::string_view word_of(message_status_t status);
std::optional<message_status_t> status_named(std::string_view word);

/// An address and, after it, its type, 3.1. `text` is what the parameter at `index` stands for in UTF-8.
std::optional<air::address_t> address_of(std::string_view text, const at_parameters_t& parameters, size_t index);

class text_mode_t {
  public:
    /// The reference outlives the object.
    explicit text_mode_t(const character_set_t& character_set) : character_set_(character_set) {}

    bool on() const { return settings_.on; }
    void reset_settings(bool on) {
        settings_ = {};
        settings_.on = on;
    }

    at_result_t cmgf(const at_command_t& command, at_lines_t& lines);
    at_result_t csmp(const at_command_t& command, at_lines_t& lines);
    at_result_t csdh(const at_command_t& command, at_lines_t& lines);

    /// <da> and <toda> in the host's character set.
    std::optional<air::address_t> destination(const at_parameters_t& parameters, size_t index) const;
    /// None when the text is none of the character set, has what the alphabet of +CSMP does not, or is too long.
    std::optional<air::submit_t> submission(std::string_view text, const air::address_t& destination) const;

    /// A message as +CMGR, +CMGL and +CMT tell it: what follows the name of the command, and the text on a line of its
    /// own. None for what is neither an SMS-DELIVER nor an SMS-SUBMIT.
    struct told_t {
        std::string header;
        std::string data;
    };
    std::optional<told_t> read(const stored_message_t& message, std::string_view service_centre) const;
    std::optional<told_t> listed(size_t index, const stored_message_t& message) const;
    std::optional<told_t> delivered(const air_message_t& message, std::string_view service_centre) const;

  private:
    struct fields_t;
    struct settings_t {
        bool on = false;            // +CMGF
        bool detailed = false;      // +CSDH
        unsigned first_octet = 17;  // +CSMP: an SMS-SUBMIT with a relative validity period,
        unsigned validity = 167;    // of 24 hours,
        unsigned protocol_identifier = 0;
        unsigned data_coding = 0;  // in the GSM default alphabet
    };

    static std::optional<fields_t> fields_of(const air_message_t& message);
    std::string address(const air::address_t& address) const;
    std::string details(const fields_t& fields, std::string_view service_centre) const;
    std::string data(const fields_t& fields) const;

    const character_set_t& character_set_;
    settings_t settings_;
};

}  // namespace network
