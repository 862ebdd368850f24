// CDMA: the submit and deliver messages of 3GPP2 C.S0015.
//
// The driver calls the coding 7-bit ASCII, yet what it hands over are the octets of a header and of a card, which do
// not fit into seven bits. They go out as octets, with the header indicated: only so does a card arrive octet for
// octet.
#include <utility>

#include "air/cdma.h"
#include "radio/assembly.h"
#include "radio/ril_message_fields.h"

namespace radio {

namespace {

// A message centre may take messages with one identifier for copies of one message (C.S0015 4.5.1), but the driver
// gives all datagrams of a card the identifier of the card. The part makes them differ, and a datagram that is sent
// again keeps its own.
uint16_t identifier_of(const RIL_OUT_CDMASUBMIT& out) {
    const std::optional<assembly::place_t> place = assembly::place_of({out.rgbHdr, out.cbHdrLength});
    return static_cast<uint16_t>(out.dwMsgID << 8 | (place && place->width != 0 ? place->part : 0));
}

// The radio layer counts its levels from 1, the air from 0. None for one that the layer does not know.
std::optional<uint8_t> level_of(DWORD number, DWORD lowest) {
    constexpr DWORD levels = 4;
    return number - lowest < levels ? std::optional(static_cast<uint8_t>(number - lowest)) : std::nullopt;
}

std::optional<uint8_t> display_mode_of(DWORD number) {
    // As the phone is set, the other modes of the driver, needs no saying.
    return number == RIL_MSGDISPLAYMODE_IMMEDIATE ? std::optional<uint8_t>(0) : std::nullopt;
}

struct card_t {
    air::cdma::message_t deliver;
    std::optional<int64_t> stamp;
    air::user_data_parts_t parts;  // of the delivery
};

std::optional<card_t> card_of(air::octets_view_t octets) {
    std::optional<air::cdma::message_t> deliver = air::cdma::decode(octets);
    const bool holds_header = deliver && deliver->type == air::cdma::message_type_t::deliver &&
                              deliver->header_indicator && deliver->user_data &&
                              deliver->user_data->encoding == air::cdma::encoding_t::octets;
    const std::optional<air::user_data_parts_t> parts =
        holds_header ? card_parts(deliver->user_data->characters) : std::nullopt;
    if (!parts) {
        return std::nullopt;
    }
    const std::optional<int64_t> stamp =
        deliver->service_centre_time ? seconds_of(*deliver->service_centre_time) : std::nullopt;
    return card_t{std::move(*deliver), stamp, *parts};
}

}  // namespace

std::optional<submission_t> cdma_submission_of(const RILMESSAGE& message) {
    const RIL_OUT_CDMASUBMIT& out = message.msgOutCDMASubmit;
    const std::optional<air::address_t> destination = destination_of(out.raDestAddress);
    std::optional<air::octets_t> user_data = user_data_of(out, has_header(message, out));
    if (!destination || !user_data || out.dwTeleservice != RIL_MSGTELESERVICE_MESSAGING) {
        return std::nullopt;
    }
    air::cdma::message_t submit;
    submit.address = *destination;
    submit.identifier = identifier_of(out);
    submit.header_indicator = has_header(message, out);
    submit.user_data = {air::cdma::encoding_t::octets, std::move(*user_data)};
    submit.validity_relative = validity_seven_days;
    submit.priority = level_of(out.dwMsgPriority, RIL_MSGPRIORITY_NORMAL);
    submit.privacy = level_of(out.dwMsgPrivacy, RIL_MSGPRIVACYCLASS_NOTRESTRICTED);
    submit.display_mode = display_mode_of(out.dwMsgDisplayMode);
    return submission_t{std::move(submit)};
}

std::optional<card_datagram_t> cdma_card_datagram_of(air::octets_view_t octets) {
    const std::optional<card_t> card = card_of(octets);
    if (!card) {
        return std::nullopt;
    }
    return card_datagram_t{.sender = sender_of(card->deliver.address),
                           .number = air::number_from_address(card->deliver.address),
                           .stamp = card->stamp,
                           .header = {card->parts.header.begin(), card->parts.header.end()},
                           .body = {card->parts.body.begin(), card->parts.body.end()},
                           .identity = air::cdma::without_reply_option(octets)};
}

bool fill_cdma_card_message(air::octets_view_t octets, RILMESSAGE& message) {
    const std::optional<card_t> card = card_of(octets);
    if (!card) {
        return false;
    }
    RIL_IN_CDMADELIVER& in = message.msgInCDMADeliver;
    begin_card_message(RIL_MSGTYPE_IN_CDMADELIVER, RIL_PARAM_M_TYPE | RIL_PARAM_M_FLAGS, sizeof in, message);
    set_origin(card->deliver.address, in.raOrigAddress);
    in.rsaOrigSubaddr.cbSize = sizeof in.rsaOrigSubaddr;
    in.raCallBackNumber.cbSize = sizeof in.raCallBackNumber;
    if (card->stamp) {
        set_time(*card->stamp, in.stSCReceiveTime);
    }
    in.dwMsgPriority = RIL_MSGPRIORITY_NORMAL + card->deliver.priority.value_or(0);
    in.dwMsgPrivacy = RIL_MSGPRIVACYCLASS_NOTRESTRICTED + card->deliver.privacy.value_or(0);
    in.dwTeleservice = RIL_MSGTELESERVICE_MESSAGING;
    in.dwMsgID = card->deliver.identifier;
    set_user_data(card->parts, in);
    return true;
}

}  // namespace radio
