/// Short messages of CDMA networks, decoded from and encoded to octets: the SMS point-to-point message of 3GPP2 C.S0015
/// 3.4.2.1 with its bearer data (4.5), of the two types that carry what people send: submit (phone to message centre)
/// and deliver (message centre to phone). Pure functions.
///
/// Parameters and subparameters that are not known, or not used here, are skipped, and so are those that are too short
/// for what they hold, what is left at the end that makes none, and reserved bits. The message is none, by value,
/// without a teleservice, an address, bearer data and in them the message identifier. What was decoded encodes to an
/// equal message, and to the same octets when it came in the order of the standard's tables and held nothing else.
#pragma once

#include "air/tpdu.h"

namespace air::cdma {

/// Wireless messaging, the teleservice of short messages between people (C.S0015 3.4.3.1).
inline constexpr uint16_t teleservice_wmt = 4098;

/// MSG_ENCODING, 3GPP2 C.R1001 table 9.1-1: those that are decoded, of 8 and of 7 bits a character.
enum class encoding_t : uint8_t { octets = 0, ascii = 2 };

/// User data, C.S0015 4.5.2.
struct user_data_t {
    encoding_t encoding = encoding_t::octets;
    octets_t characters;  // an octet each

    bool operator==(const user_data_t&) const = default;
};

enum class message_type_t : uint8_t { deliver = 1, submit = 2 };

/// Addresses and times are those of tpdu.h, which have the same types and plans. An address of unknown type travels as
/// DTMF digits, every other as characters; that of a data network (electronic mail) counts as alphanumeric. Times have
/// no zone.
struct message_t {
    message_type_t type = message_type_t::submit;
    uint16_t teleservice = teleservice_wmt;
    address_t address;                      // originating (deliver) or destination (submit)
    std::optional<uint8_t> reply_sequence;  // bearer reply option: the transport layer is to acknowledge
    uint16_t identifier = 0;                // MESSAGE_ID
    bool header_indicator = false;          // HEADER_IND: the characters begin with a header and its length octet
    std::optional<user_data_t> user_data;   // none also for another encoding, or when it is cut short
    std::optional<timestamp_t> service_centre_time;
    std::optional<timestamp_t> validity_absolute;
    std::optional<uint8_t> validity_relative;
    std::optional<uint8_t> priority;      // 0 normal to 3 emergency
    std::optional<uint8_t> privacy;       // 0 not restricted to 3 secret
    std::optional<uint8_t> display_mode;  // 0 at once, 1 as the phone is set, 2 when the user asks

    bool operator==(const message_t&) const = default;
};

std::optional<message_t> decode(octets_view_t octets);
/// A message without its bearer reply option, which may differ between the transmissions of one; all else is as it is.
octets_t without_reply_option(octets_view_t octets);
/// None when a field does not fit its place: too long an address, too many characters, a time that has no
/// digits for it.
std::optional<octets_t> encode(const message_t& message);

}  // namespace air::cdma
