/// Short messages as they pass over the air of one network or the other, to and from the one form in which the service
/// centre keeps them: the fields of 3GPP TS 23.040, which hold all that crosses. Pure functions.
///
/// Octets cross with their header as they are; that is what cards are. Text crosses where it is plain: of the GSM
/// default alphabet without a header to CDMA's 7-bit ASCII and back, as far as both have its characters. All else stays
/// on its side: it could only be garbled.
#pragma once

#include "air/tpdu.h"

namespace network {

enum class air_form_t : uint8_t { gsm_tpdu, cdma_point_to_point };

struct air_message_t {
    air_form_t form = air_form_t::gsm_tpdu;
    air::octets_t octets;
};

/// What a phone submits.
struct submission_t {
    air_form_t form = air_form_t::gsm_tpdu;
    air::submit_t submit;
    uint16_t reference = 0;  // TP-MR, or the identifier of a CDMA message
};
/// None when it is no message to submit, or holds what does not cross.
std::optional<submission_t> submission_of(const air_message_t& message);

/// `identifier` is the message's in CDMA. None when it holds what does not cross.
std::optional<air_message_t> delivery_of(const air::deliver_t& deliver, uint16_t identifier, air_form_t form);

bool is_delivery(const air_message_t& message);

}  // namespace network
