/// Short message transfer protocol data units of 3GPP TS 23.040, decoded from and encoded to octets: SMS-SUBMIT (phone
/// to service centre) and SMS-DELIVER (service centre to phone), and the service centre address that precedes them in
/// the PDU mode of 3GPP TS 27.005. Pure functions; nothing here logs or does I/O.
///
/// Decoders fail by value on what is truncated or cannot be what it claims to be. What centres and modems get wrong
/// without harm they pass over: spare bits, fillers, a length of digits that counts the filler, and octets behind a
/// message that is delivered. So more than one text of octets may decode to a message, and encoding gives one of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "air/octets.h"

namespace air {

/// TP-User-Data holds at most 140 octets (3GPP TS 23.040 9.2.3.24).
inline constexpr size_t max_user_data = 140;
/// Digits of an address (9.1.2.5): at most 20.
inline constexpr size_t max_address_digits = 20;

/// Type of number, 3GPP TS 23.040 9.1.2.5.
enum class number_type_t : uint8_t {
    unknown = 0,
    international = 1,
    national = 2,
    network_specific = 3,
    subscriber = 4,
    alphanumeric = 5,
    abbreviated = 6,
    reserved = 7,
};

/// An address field. `text` holds the digits (0-9 * # a b c, as the semi-octets name them, without "+"), or for an
/// alphanumeric address its text in UTF-8.
struct address_t {
    number_type_t type = number_type_t::unknown;
    uint8_t numbering_plan = 1;
    std::string text;

    bool operator==(const address_t&) const = default;
};

/// An address from the way a person writes it: "+" and digits is international, digits alone of unknown type. None when
/// it holds anything else, no digit, or more than 20 of them.
std::optional<address_t> address_from_number(std::string_view number);
/// The way a person reads it: "+" before an international number; an alphanumeric one as it is, control characters
/// replaced by U+FFFD.
std::string number_from_address(const address_t& address);

/// TP-Service-Centre-Time-Stamp, 9.2.3.11: local time and its offset from UTC in quarters of an hour. What is no digit
/// counts as 0 there.
struct timestamp_t {
    uint8_t year = 0;  // 0..99
    uint8_t month = 1;
    uint8_t day = 1;
    uint8_t hour = 0;
    uint8_t minute = 0;
    uint8_t second = 0;
    int8_t quarters_east = 0;

    bool operator==(const timestamp_t&) const = default;
};

/// TP-Data-Coding-Scheme, 3GPP TS 23.038 4: which alphabet the user data is in.
enum class alphabet_t { gsm7, octets8, ucs2, compressed };
alphabet_t alphabet_of(uint8_t data_coding);
inline constexpr uint8_t data_coding_8bit = 0x04;

/// SMS-SUBMIT, 9.2.2.2. The validity period is the relative format only (9.2.3.12.1).
struct submit_t {
    bool reject_duplicates = false;
    bool status_report_request = false;
    bool reply_path = false;
    uint8_t message_reference = 0;
    address_t destination;
    uint8_t protocol_identifier = 0;
    uint8_t data_coding = 0;
    std::optional<uint8_t> validity_period;
    bool header_indicator = false;  // TP-UDHI: user_data begins with a header and its length octet
    uint8_t user_data_length = 0;   // TP-UDL: octets, or septets when the alphabet is gsm7
    octets_t user_data;             // TP-UD as on the air

    bool operator==(const submit_t&) const = default;
};

/// The bit of an SMS-DELIVER's first octet that tells that no more messages wait (TP-MMS, 9.2.3.2).
inline constexpr uint8_t bit_no_more_messages = 0x04;

/// SMS-DELIVER, 9.2.2.1.
struct deliver_t {
    bool more_messages = false;    // the service centre has more waiting (the TP-MMS bit inverted)
    bool loop_prevention = false;  // TP-LP, 9.2.3.28
    bool status_report_indication = false;
    bool reply_path = false;
    address_t originator;
    uint8_t protocol_identifier = 0;
    uint8_t data_coding = 0;
    timestamp_t service_centre_time;
    bool header_indicator = false;
    uint8_t user_data_length = 0;
    octets_t user_data;
    size_t padding = 0;  // octets that came behind the user data and mean nothing; not encoded

    bool operator==(const deliver_t&) const = default;
};

std::optional<submit_t> decode_submit(octets_view_t octets);
/// Also of the reserved message type, which a phone is to take for a delivery (9.2.3.1).
std::optional<deliver_t> decode_deliver(octets_view_t octets);
/// The same without a copy of the user data: a view into the octets.
std::optional<deliver_t> decode_deliver_fields(octets_view_t octets, octets_view_t& user_data);
/// None when a field does not fit its place on the wire: an address too long, user data over 140 octets, or a length
/// that disagrees with them.
std::optional<octets_t> encode(const submit_t& submit);
/// Into an SMS-SUBMIT that is encoded already: each of its submissions differs in these two alone.
void set_reference(octets_t& submit, uint8_t reference, bool reject_duplicates);
std::optional<octets_t> encode(const deliver_t& deliver);

/// A header and its user data as one TP-UD: `header` without its length octet and not empty, 8-bit data. None over 140
/// octets.
std::optional<octets_t> join_user_data(octets_view_t header, octets_view_t body);
/// The reverse, of 8-bit user data with the header indicator set: the views point into `user_data`. None when the
/// header's length exceeds the data.
struct user_data_parts_t {
    octets_view_t header;
    octets_view_t body;
};
std::optional<user_data_parts_t> split_user_data(octets_view_t user_data);
/// The destination port of the first port addressing element, 8- or 16-bit (9.2.3.24.3, 9.2.3.24.4), or none.
std::optional<uint16_t> destination_port(octets_view_t header);

/// Where a datagram belongs, as the driver reads its header.
struct place_t {
    uint8_t width = 0;  // octets of the reference, which tell references apart; 0: a message of its own
    uint16_t reference = 0;
    uint8_t part = 1;  // from 1
    uint8_t parts = 1;

    auto operator<=>(const place_t&) const = default;
};
/// By the first concatenation element (9.2.3.24.1, 9.2.3.24.8), part 0 taken for 1. None when the driver refuses the
/// datagram: an element that is cut off or of a wrong length, no parts, or a part behind the last.
std::optional<place_t> place_of(octets_view_t header);

/// A PDU of AT+CMGS, +CMGR, +CMT: the service centre address (empty text: the one stored on the SIM), then the TPDU.
struct pdu_t {
    address_t service_centre;
    octets_t tpdu;
};
/// A service centre's name in letters is passed over.
std::optional<pdu_t> decode_pdu(octets_view_t octets);
std::optional<octets_t> encode_pdu(const pdu_t& pdu);

}  // namespace air
