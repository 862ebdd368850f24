/// RILMESSAGE to and from what a modem sends and receives: what the driver hands to the radio and what it is handed.
/// Pure functions.
#pragma once

#include <ril.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "air/cdma.h"
#include "air/tpdu.h"

namespace radio {

/// The application port of contact cards.
inline constexpr uint16_t card_port = 9204;

/// How long the service centre keeps a message for a phone that cannot be reached, as a relative validity period
/// (3GPP TS 23.040 9.2.3.12.1, 3GPP2 C.S0015 4.5.6, alike: 166 and the number of days): seven days outlast a phone left
/// at home over a holiday. The driver hands over the clock time of the submission instead, by which every message would
/// be too old on arrival.
inline constexpr uint8_t validity_seven_days = 166 + 7;

/// The kind of network that a message is for; its octets are coded accordingly.
enum class technology_t : uint8_t { gsm, cdma };

/// What AT+CMGS sends: an SMS-SUBMIT, whose reference is still to be set, or a CDMA point-to-point message of that
/// type, which has an identifier of its own.
struct submission_t {
    std::variant<air::submit_t, air::cdma::message_t> message;

    [[nodiscard]] technology_t technology() const {
        return std::holds_alternative<air::submit_t>(message) ? technology_t::gsm : technology_t::cdma;
    }
    bool operator==(const submission_t&) const = default;
};
/// None when the message is none that can go on the air: of a wrong size or type, a destination that is no number, more
/// than 140 octets of user data, of another CDMA teleservice than that for people's messages, or a GSM one coded in the
/// 7-bit alphabet (the message carries octets).
std::optional<submission_t> submission_of(const RILMESSAGE& message);
/// What AT+CMGS takes (3GPP TS 27.005 4.3).
struct entry_t {
    size_t length;       // octets of the message
    std::string digits;  // of a GSM message, behind the service centre of the SIM
};
/// An SMS-SUBMIT goes out under this reference and, if so, with duplicates to be rejected. None when a field does not
/// fit its place; submission_of gives no such message.
std::optional<entry_t> entry_of(const submission_t& submission, uint16_t reference, bool reject_duplicates);

/// Octets, or a text in the 7-bit alphabet, whose header addresses the port of contact cards.
struct card_datagram_t {
    std::string sender;            // type of number and digits: tells senders apart
    std::string number;            // the sender's, as a person reads it
    std::optional<int64_t> stamp;  // the service centre's, in seconds since 1970; none when it is no date
    air::octets_t header;          // without its length octet
    air::octets_t body;            // a text in UTF-8
    air::octets_t identity;        // equal for two copies of one datagram, whatever the network changed on their way
};
/// Of the octets that a modem delivers: an SMS-DELIVER, or a CDMA point-to-point message of that type. None for
/// anything that is no card datagram.
std::optional<card_datagram_t> card_datagram_of(technology_t technology, air::octets_view_t octets);
/// The same as the driver expects it; the time is left out when it is no date. False when it is no card datagram.
[[nodiscard]] bool fill_card_message(technology_t technology, air::octets_view_t octets, RILMESSAGE& message);
/// Whether the element that addresses the port of contact cards is somewhere in them, at any bit: what has it and is no
/// card datagram may be a damaged one.
bool names_card_port(air::octets_view_t octets);

}  // namespace radio
