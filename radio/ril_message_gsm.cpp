// GSM and UMTS: SMS-SUBMIT and SMS-DELIVER.
#include <algorithm>
#include <string_view>
#include <utility>

#include "air/gsm_alphabet.h"
#include "radio/ril_message_fields.h"

namespace radio {

namespace {

constexpr uint8_t data_coding_ucs2 = 0x08;

// Without a valid alphabet the octets go out as what they are.
std::optional<uint8_t> data_coding_of(const RILMESSAGE& message) {
    const RILMSGDCS& coding = message.msgOutSubmit.rmdDataCoding;
    const bool valid = (message.dwParams & RIL_PARAM_M_DATACODING) && (coding.dwParams & RIL_PARAM_MDCS_ALPHABET);
    if (!valid || coding.dwAlphabet == RIL_DCSALPHABET_8BIT) {
        return air::data_coding_8bit;
    }
    return coding.dwAlphabet == RIL_DCSALPHABET_UCS2 ? std::optional(data_coding_ucs2) : std::nullopt;
}

// Septets that begin at any bit.
std::string text_at(air::octets_view_t octets, size_t bit, size_t count) {
    std::vector<uint8_t> septets;
    for (; count > 0 && bit + 7 <= octets.size() * 8; --count, bit += 7) {
        const unsigned high = bit / 8 + 1 < octets.size() ? octets[bit / 8 + 1] : 0;
        septets.push_back(static_cast<uint8_t>((octets[bit / 8] | high << 8) >> bit % 8 & 0x7F));
    }
    return air::gsm_alphabet::to_utf8(septets);
}

// The text begins at the first septet boundary after the header (3GPP TS 23.040 9.2.3.24). Gammu 1.42 puts the text of
// AT+CMGS=118 "0B050423F400000003D80101 202C1E93..." two bits after it: a card is told by its first line.
std::string text_of(uint8_t user_data_length, air::octets_view_t user_data, size_t header_octets) {
    constexpr std::string_view first_line = "BEGIN:VCARD";
    const size_t begin = (header_octets * 8 + 6) / 7;
    const size_t count = user_data_length - std::min<size_t>(begin, user_data_length);
    for (size_t fill = 0; fill < 8; ++fill) {
        std::string text = text_at(user_data, header_octets * 8 + fill, count);
        if (text.starts_with(first_line)) {
            return text;
        }
    }
    return text_at(user_data, begin * 7, count);
}

struct card_t {
    std::optional<air::deliver_t> deliver;  // without its user data
    air::octets_view_t user_data;
    std::string text;  // of a card in the 7-bit alphabet
    std::optional<int64_t> stamp;
    air::user_data_parts_t parts;  // of the user data; the body may be the text
};

// A text in the 7-bit alphabet, as some phones send a short card, becomes the octets of its UTF-8: the driver takes
// octets and nothing else.
bool decode_body(card_t& card) {
    const air::alphabet_t alphabet = air::alphabet_of(card.deliver->data_coding);
    if (alphabet != air::alphabet_t::gsm7) {
        return alphabet == air::alphabet_t::octets8;
    }
    card.text = text_of(card.deliver->user_data_length, card.user_data, card.parts.header.size() + 1);
    card.parts.body = {reinterpret_cast<const uint8_t*>(card.text.data()), card.text.size()};
    return card.text.size() <= MAXLENGTH_MSG;
}

bool decode(air::octets_view_t octets, card_t& card) {
    card.deliver = air::decode_deliver_fields(octets, card.user_data);
    if (!card.deliver || !card.deliver->header_indicator) {
        return false;
    }
    const std::optional<air::user_data_parts_t> parts = card_parts(card.user_data);
    if (!parts) {
        return false;
    }
    card.parts = *parts;
    card.stamp = seconds_of(card.deliver->service_centre_time);
    return decode_body(card);
}

// The octets as they came: what decodes alike may have been sent apart. Only the bit that more messages wait differs
// between copies of one message, and the padding, which may be a memory's.
air::octets_t identity_of(air::octets_view_t octets, const air::deliver_t& deliver) {
    air::octets_t identity(octets.begin(), octets.end() - static_cast<std::ptrdiff_t>(deliver.padding));
    identity[0] |= air::bit_no_more_messages;
    return identity;
}

}  // namespace

std::optional<submission_t> gsm_submission_of(const RILMESSAGE& message) {
    const RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    std::optional<air::address_t> destination = destination_of(out.raDestAddress);
    const std::optional<uint8_t> data_coding = data_coding_of(message);
    std::optional<air::octets_t> user_data = user_data_of(out, has_header(message, out));
    if (!destination || !data_coding || !user_data) {
        return std::nullopt;
    }
    std::optional<submission_t> submission(std::in_place);
    auto& submit = submission->message.emplace<air::submit_t>();
    submit.destination = std::move(*destination);
    submit.data_coding = *data_coding;
    submit.validity_period = validity_seven_days;
    submit.header_indicator = has_header(message, out);
    submit.user_data_length = static_cast<uint8_t>(user_data->size());
    submit.user_data = std::move(*user_data);
    return submission;
}

std::optional<card_datagram_t> gsm_card_datagram_of(air::octets_view_t octets) {
    card_t card;
    if (!decode(octets, card)) {
        return std::nullopt;
    }
    return card_datagram_t{.sender = sender_of(card.deliver->originator),
                           .number = air::number_from_address(card.deliver->originator),
                           .stamp = card.stamp,
                           .header = {card.parts.header.begin(), card.parts.header.end()},
                           .body = {card.parts.body.begin(), card.parts.body.end()},
                           .identity = identity_of(octets, *card.deliver)};
}

bool fill_gsm_card_message(air::octets_view_t octets, RILMESSAGE& message) {
    card_t card;
    if (!decode(octets, card)) {
        return false;
    }
    constexpr DWORD params = RIL_PARAM_M_TYPE | RIL_PARAM_M_FLAGS | RIL_PARAM_M_ORIGADDRESS | RIL_PARAM_M_PROTOCOLID |
                             RIL_PARAM_M_DATACODING | RIL_PARAM_M_HDRLENGTH | RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR |
                             RIL_PARAM_M_MSG;
    RIL_IN_DELIVER& in = message.msgInDeliver;
    begin_card_message(RIL_MSGTYPE_IN_DELIVER, params, sizeof in, message);
    set_origin(card.deliver->originator, in.raOrigAddress);
    in.dwProtocolID = card.deliver->protocol_identifier == 0 ? RIL_MSGPROTOCOL_SMETOSME : 0;
    in.rmdDataCoding.cbSize = sizeof in.rmdDataCoding;
    in.rmdDataCoding.dwParams = RIL_PARAM_MDCS_TYPE | RIL_PARAM_MDCS_ALPHABET;
    in.rmdDataCoding.dwType = RIL_DCSTYPE_GENERAL;
    in.rmdDataCoding.dwAlphabet = RIL_DCSALPHABET_8BIT;
    if (card.stamp) {
        set_time(*card.stamp, in.stSCReceiveTime);
        message.dwParams |= RIL_PARAM_M_SCRECEIVETIME;
    }
    set_user_data(card.parts, in);
    return true;
}

}  // namespace radio
