#include "network/air_message.h"

#include <algorithm>
#include <utility>

#include "air/cdma.h"
#include "air/gsm_alphabet.h"

namespace network {

namespace {

bool is_ascii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Sets data coding, length and user data. False when the user data does not cross.
bool to_gsm(const air::cdma::message_t& message, air::submit_t& submit) {
    const air::cdma::user_data_t user_data = message.user_data.value_or(air::cdma::user_data_t{});
    const air::octets_t& characters = user_data.characters;
    if (user_data.encoding == air::cdma::encoding_t::octets) {
        submit.data_coding = air::data_coding_8bit;
        submit.user_data_length = static_cast<uint8_t>(characters.size());
        submit.user_data = characters;
        return characters.size() <= air::max_user_data;
    }
    const auto septets = air::gsm_alphabet::from_utf8(std::string(characters.begin(), characters.end()));
    constexpr size_t max_septets = 160;
    if (message.header_indicator || !septets || septets->size() > max_septets) {
        return false;
    }
    submit.user_data_length = static_cast<uint8_t>(septets->size());
    submit.user_data = air::gsm_alphabet::pack(*septets);
    return true;
}

std::optional<air::cdma::user_data_t> to_cdma(const air::deliver_t& deliver) {
    const air::alphabet_t alphabet = air::alphabet_of(deliver.data_coding);
    if (alphabet == air::alphabet_t::octets8) {
        return air::cdma::user_data_t{air::cdma::encoding_t::octets, deliver.user_data};
    }
    if (alphabet != air::alphabet_t::gsm7 || deliver.header_indicator) {
        return std::nullopt;
    }
    const std::string text =
        air::gsm_alphabet::to_utf8(air::gsm_alphabet::unpack(deliver.user_data, deliver.user_data_length));
    return is_ascii(text)
               ? std::optional(air::cdma::user_data_t{air::cdma::encoding_t::ascii, {text.begin(), text.end()}})
               : std::nullopt;
}

std::optional<submission_t> cdma_submission_of(const air::octets_t& octets) {
    const std::optional<air::cdma::message_t> message = air::cdma::decode(octets);
    submission_t submission;
    if (!message || message->type != air::cdma::message_type_t::submit || !to_gsm(*message, submission.submit)) {
        return std::nullopt;
    }
    submission.form = air_form_t::cdma_point_to_point;
    submission.reference = message->identifier;
    submission.submit.destination = message->address;
    submission.submit.header_indicator = message->header_indicator;
    return submission;
}

std::optional<air::octets_t> cdma_delivery_of(const air::deliver_t& deliver, uint16_t identifier) {
    air::cdma::message_t message;
    message.type = air::cdma::message_type_t::deliver;
    message.address = deliver.originator;
    message.identifier = identifier;
    message.header_indicator = deliver.header_indicator;
    message.user_data = to_cdma(deliver);
    message.service_centre_time = deliver.service_centre_time;
    return message.user_data ? air::cdma::encode(message) : std::nullopt;
}

}  // namespace

std::optional<submission_t> submission_of(const air_message_t& message) {
    if (message.form == air_form_t::cdma_point_to_point) {
        return cdma_submission_of(message.octets);
    }
    std::optional<air::submit_t> submit = air::decode_submit(message.octets);
    return submit ? std::optional(submission_t{message.form, *submit, submit->message_reference}) : std::nullopt;
}

std::optional<air_message_t> delivery_of(const air::deliver_t& deliver, uint16_t identifier, air_form_t form) {
    std::optional<air::octets_t> octets =
        form == air_form_t::gsm_tpdu ? air::encode(deliver) : cdma_delivery_of(deliver, identifier);
    return octets ? std::optional(air_message_t{form, std::move(*octets)}) : std::nullopt;
}

bool is_delivery(const air_message_t& message) {
    if (message.form == air_form_t::gsm_tpdu) {
        return air::decode_deliver(message.octets).has_value();
    }
    const std::optional<air::cdma::message_t> decoded = air::cdma::decode(message.octets);
    return decoded && decoded->type == air::cdma::message_type_t::deliver;
}

}  // namespace network
