// GSM and UMTS: SMS-SUBMIT and SMS-DELIVER.
#include <utility>

#include "radio/ril_message_fields.h"

namespace radio {

namespace {

constexpr uint8_t data_coding_ucs2 = 0x08;

// Without a valid alphabet the octets go out as what they are.
std::optional<uint8_t> data_coding_of(const RILMESSAGE& message) {
    const RILMSGDCS& coding = message.msgOutSubmit.rmdDataCoding;
    const bool valid = (message.dwParams & RIL_PARAM_M_DATACODING) && (coding.dwParams & RIL_PARAM_MDCS_ALPHABET);
    if (!valid || coding.dwAlphabet == RIL_DCSALPHABET_8BIT) {
        return tpdu::data_coding_8bit;
    }
    return coding.dwAlphabet == RIL_DCSALPHABET_UCS2 ? std::optional(data_coding_ucs2) : std::nullopt;
}

RILMESSAGE message_of(const tpdu::deliver_t& deliver, const tpdu::user_data_parts_t& parts) {
    RILMESSAGE message{};
    message.cbSize = sizeof message;
    message.dwParams = RIL_PARAM_M_TYPE | RIL_PARAM_M_FLAGS | RIL_PARAM_M_ORIGADDRESS | RIL_PARAM_M_PROTOCOLID |
                       RIL_PARAM_M_DATACODING | RIL_PARAM_M_HDRLENGTH | RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR |
                       RIL_PARAM_M_MSG;
    message.dwType = RIL_MSGTYPE_IN_DELIVER;
    message.dwFlags = RIL_MSGFLAG_HEADER;
    RIL_IN_DELIVER in{};
    set_origin(deliver.originator, in.raOrigAddress);
    in.dwProtocolID = deliver.protocol_identifier == 0 ? RIL_MSGPROTOCOL_SMETOSME : 0;
    in.rmdDataCoding.cbSize = sizeof in.rmdDataCoding;
    in.rmdDataCoding.dwParams = RIL_PARAM_MDCS_TYPE | RIL_PARAM_MDCS_ALPHABET;
    in.rmdDataCoding.dwType = RIL_DCSTYPE_GENERAL;
    in.rmdDataCoding.dwAlphabet = RIL_DCSALPHABET_8BIT;
    if (set_time(deliver.service_centre_time, in.stSCReceiveTime)) {
        message.dwParams |= RIL_PARAM_M_SCRECEIVETIME;
    }
    set_user_data(parts, in);
    message.msgInDeliver = in;
    return message;
}

// The bit that more messages wait differs between copies of one message.
tpdu::octets_t identity_of(tpdu::deliver_t deliver) {
    deliver.more_messages = false;
    return tpdu::encode(deliver).value_or(tpdu::octets_t());
}

}  // namespace

std::optional<submission_t> gsm_submission_of(const RILMESSAGE& message) {
    const RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    const std::optional<tpdu::address_t> destination = destination_of(out.raDestAddress);
    const std::optional<uint8_t> data_coding = data_coding_of(message);
    std::optional<tpdu::octets_t> user_data = user_data_of(out, has_header(message, out));
    if (!destination || !data_coding || !user_data) {
        return std::nullopt;
    }
    tpdu::submit_t submit;
    submit.destination = *destination;
    submit.data_coding = *data_coding;
    submit.validity_period = validity_seven_days;
    submit.header_indicator = has_header(message, out);
    submit.user_data_length = static_cast<uint8_t>(user_data->size());
    submit.user_data = std::move(*user_data);
    std::optional<tpdu::octets_t> octets = tpdu::encode(submit);
    return octets ? std::optional(submission_t{technology_t::gsm, std::move(*octets), 0}) : std::nullopt;
}

std::optional<card_datagram_t> gsm_card_datagram_of(tpdu::octets_view_t octets) {
    const std::optional<tpdu::deliver_t> deliver = tpdu::decode_deliver(octets);
    if (!deliver || !deliver->header_indicator ||
        tpdu::alphabet_of(deliver->data_coding) != tpdu::alphabet_t::octets8) {
        return std::nullopt;
    }
    const std::optional<tpdu::user_data_parts_t> parts = card_parts(deliver->user_data);
    if (!parts) {
        return std::nullopt;
    }
    return card_datagram_t{.message = message_of(*deliver, *parts),
                           .sender = sender_of(deliver->originator),
                           .header = {parts->header.begin(), parts->header.end()},
                           .body = {parts->body.begin(), parts->body.end()},
                           .identity = identity_of(*deliver)};
}

}  // namespace radio
