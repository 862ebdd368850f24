#include "network/message_pdu.h"

#include "base/hex.h"
#include "network/service_centre.h"

namespace network {

namespace {

std::string pdu_of(const air::octets_t& tpdu) {
    const auto centre = air::address_from_number(service_centre_t::own_number);
    const auto pdu = air::encode_pdu({centre.value_or(air::address_t{}), tpdu});
    return base::to_hex(pdu.value_or(air::octets_t{}));
}

/// The seconds of an SMS-DELIVER's time stamp; its time zone follows.
size_t seconds_at(const air::octets_t& tpdu) {
    const size_t address_octets = (tpdu[1] + 1U) / 2;
    return 3 + address_octets + 2 + 5;  // TP-MTI, length, type, address, TP-PID, TP-DCS, and year to minute
}

}  // namespace

told_pdu_t told_pdu(const air_message_t& message, pdu_form_t form) {
    if (message.form == air_form_t::cdma_point_to_point) {
        return {message.octets.size(), base::to_hex(message.octets)};
    }
    air::octets_t tpdu = message.octets;
    int length_off_by = 0;
    switch (is_delivery(message) ? form : pdu_form_t::usual) {
        case pdu_form_t::usual:
            break;
        case pdu_form_t::spare_bits:
            tpdu[0] |= 0x10;
            break;
        case pdu_form_t::even_address:
            tpdu[1] += tpdu[1] % 2;
            break;
        case pdu_form_t::no_clock:
            tpdu[seconds_at(tpdu)] = tpdu[seconds_at(tpdu) + 1] = 0xFF;
            break;
        case pdu_form_t::padded:
            tpdu.insert(tpdu.end(), 4, 0xFF);
            break;
        case pdu_form_t::length_over:
            length_off_by = 1;
            break;
        case pdu_form_t::length_under:
            length_off_by = -1;
            break;
    }
    return {tpdu.size() + length_off_by, pdu_of(tpdu)};
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
