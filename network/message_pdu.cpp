#include "network/message_pdu.h"

#include "base/hex.h"
#include "network/service_centre.h"

namespace network {

std::string pdu_text(const air_message_t& message) {
    if (message.form == air_form_t::cdma_point_to_point) {
        return base::to_hex(message.octets);
    }
    const auto centre = air::address_from_number(service_centre_t::own_number);
    const auto pdu = air::encode_pdu({centre.value_or(air::address_t{}), message.octets});
    return base::to_hex(pdu.value_or(air::octets_t{}));
}

std::optional<air_message_t> message_of_pdu(std::string_view text, air_form_t form, size_t length) {
    std::optional<air::octets_t> octets = base::from_hex(text);
    if (octets && form == air_form_t::gsm_tpdu) {
        std::optional<air::pdu_t> pdu = air::decode_pdu(*octets);
        octets = pdu ? std::optional(std::move(pdu->tpdu)) : std::nullopt;
    }
    const bool whole = octets && octets->size() == length;
    return whole ? std::optional(air_message_t{form, std::move(*octets)}) : std::nullopt;
}

}  // namespace network
