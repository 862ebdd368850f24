/// Inside ril_message.h: the two kinds of message, and the fields that both have.
#pragma once

#include <algorithm>

#include "radio/ril_message.h"

namespace radio {

// ril_message_gsm.cpp
std::optional<submission_t> gsm_submission_of(const RILMESSAGE& message);
std::optional<card_datagram_t> gsm_card_datagram_of(air::octets_view_t octets);
bool fill_gsm_card_message(air::octets_view_t octets, RILMESSAGE& message);
// ril_message_cdma.cpp
std::optional<submission_t> cdma_submission_of(const RILMESSAGE& message);
std::optional<card_datagram_t> cdma_card_datagram_of(air::octets_view_t octets);
bool fill_cdma_card_message(air::octets_view_t octets, RILMESSAGE& message);

/// None for a text that is no number.
std::optional<air::address_t> destination_of(const RILADDRESS& address);
void set_origin(const air::address_t& originator, RILADDRESS& address);
/// Clears the message as far as it is used: up to the end of the member of the union, of that size.
void begin_card_message(DWORD type, DWORD params, size_t member, RILMESSAGE& message);
std::string sender_of(const air::address_t& originator);
/// The service centre's local time, in this century, as seconds since 1970. None when it is no date.
std::optional<int64_t> seconds_of(const air::timestamp_t& stamp);
void set_time(int64_t seconds_since_1970, SYSTEMTIME& time);  // UTC

/// The header and the body of an outgoing message as user data. None over 140 octets.
template <class submit_t>
std::optional<air::octets_t> user_data_of(const submit_t& out, bool has_header) {
    if (out.cbHdrLength > MAXLENGTH_HDR || out.cbBodyLength > air::max_user_data) {
        return std::nullopt;
    }
    const air::octets_view_t body(out.rgbMsg, out.cbBodyLength);
    return has_header ? air::join_user_data({out.rgbHdr, out.cbHdrLength}, body)
                      : air::octets_t(body.begin(), body.end());
}
template <class submit_t>
bool has_header(const RILMESSAGE& message, const submit_t& out) {
    return (message.dwFlags & RIL_MSGFLAG_HEADER) && out.cbHdrLength > 0;
}

/// Header and body of 8-bit user data; none unless the header addresses the port of contact cards.
std::optional<air::user_data_parts_t> card_parts(air::octets_view_t user_data);

/// The same into an incoming message: what a length octet can tell fits.
template <class deliver_t>
void set_user_data(const air::user_data_parts_t& parts, deliver_t& in) {
    in.cbHdrLength = static_cast<DWORD>(parts.header.size());
    in.cchMsgLength = static_cast<DWORD>(parts.body.size());
    std::copy_n(parts.header.data(), parts.header.size(), in.rgbHdr);
    std::copy_n(parts.body.data(), parts.body.size(), in.rgbMsg);
}

}  // namespace radio
