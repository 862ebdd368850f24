#include "network/text_mode.h"

#include <fmt/format.h>

#include <algorithm>

#include "air/gsm_alphabet.h"
#include "base/hex.h"

namespace network {

namespace {

constexpr std::string_view status_words[] = {"REC UNREAD", "REC READ", "STO UNSENT", "STO SENT"};  // by status

// Of an address, 3GPP TS 24.011 8.2.5.2.
constexpr unsigned international_number = 145;
constexpr unsigned unknown_number = 129;

unsigned type_of(const air::address_t& address) {
    return 0x80U | static_cast<unsigned>(address.type) << 4 | address.numbering_plan;
}

// Of the first octet, 3GPP TS 23.040 9.2.3.
constexpr unsigned type_mask = 0x03;
constexpr unsigned type_submit = 0x01;
constexpr unsigned bit_reject_duplicates = 0x04;
constexpr unsigned validity_mask = 0x18;
constexpr unsigned validity_relative = 0x10;
constexpr unsigned bit_status_report = 0x20;
constexpr unsigned bit_header = 0x40;
constexpr unsigned bit_reply_path = 0x80;

constexpr size_t max_septets = 160;

std::string time_text(const air::timestamp_t& time) {
    return fmt::format("{:02}/{:02}/{:02},{:02}:{:02}:{:02}{:+03}", time.year, time.month, time.day, time.hour,
                       time.minute, time.second, time.quarters_east);
}

/// In 7-bit text a line has no other end than the one in it; in digits it ends nothing.
std::string without_line_ends(std::string_view text) {
    std::string kept(text);
    std::erase_if(kept, [](char c) { return c == '\r' || c == '\n'; });
    return kept;
}

bool set_octets(std::string_view text, air::submit_t& submit) {
    const auto octets = base::from_hex(without_line_ends(text));
    if (!octets || octets->size() > air::max_user_data) {
        return false;
    }
    const bool in_septets = air::alphabet_of(submit.data_coding) == air::alphabet_t::gsm7;
    submit.user_data = *octets;
    submit.user_data_length = static_cast<uint8_t>(in_septets ? octets->size() * 8 / 7 : octets->size());
    return true;
}

bool set_characters(std::string_view text, air::submit_t& submit) {
    const auto septets = air::gsm_alphabet::from_utf8(text);
    if (!septets || septets->size() > max_septets) {
        return false;
    }
    submit.user_data = air::gsm_alphabet::pack(*septets);
    submit.user_data_length = static_cast<uint8_t>(septets->size());
    return true;
}

bool is_plain_text(uint8_t data_coding, bool header_indicator) {
    return air::alphabet_of(data_coding) == air::alphabet_t::gsm7 && !header_indicator;
}

}  // namespace

std::string_view word_of(message_status_t status) {
    return status_words[static_cast<size_t>(status)];
}

std::optional<message_status_t> status_named(std::string_view word) {
    const auto* const known = std::ranges::find(status_words, word);
    return known == std::end(status_words) ? std::nullopt
                                           : std::optional(static_cast<message_status_t>(known - status_words));
}

std::optional<air::address_t> address_of(std::string_view text, const at_parameters_t& parameters, size_t index) {
    const std::optional<unsigned> type = parameters.number_or(index + 1, 255, unknown_number);
    if (!type) {
        return std::nullopt;
    }
    const bool lacks_plus = *type == international_number && !text.starts_with('+');
    return air::address_from_number((lacks_plus ? "+" : "") + std::string(text));
}

/// Message format, 3.2.3.
at_result_t text_mode_t::cmgf(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CMGF: {}", settings_.on ? 1 : 0));
        return at_ok;
    }
    const std::optional<unsigned> mode = at_parameters_t(command.value).number_or(0, 1, 0);
    if (!mode) {
        return cms_not_supported;
    }
    settings_.on = *mode == 1;
    return at_ok;
}

/// Text mode parameters, 3.3.2. A first octet is one of a message to submit, its validity period relative or none.
at_result_t text_mode_t::csmp(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSMP: {},{},{},{}", settings_.first_octet, settings_.validity,
                                    settings_.protocol_identifier, settings_.data_coding));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    settings_t chosen = settings_;
    unsigned* const values[] = {&chosen.first_octet, &chosen.validity, &chosen.protocol_identifier,
                                &chosen.data_coding};
    for (size_t i = 0; i < std::size(values); ++i) {
        const std::optional<unsigned> value = parameters.number_or(i, 255, *values[i]);
        if (!value) {
            return cms_invalid_text_parameter;
        }
        *values[i] = *value;
    }
    const unsigned validity = chosen.first_octet & validity_mask;
    if ((chosen.first_octet & type_mask) != type_submit || (validity != 0 && validity != validity_relative)) {
        return cms_invalid_text_parameter;
    }
    settings_ = chosen;
    return at_ok;
}

/// Whether the details are told, 3.3.3.
at_result_t text_mode_t::csdh(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSDH: {}", settings_.detailed ? 1 : 0));
        return at_ok;
    }
    const std::optional<unsigned> detailed = at_parameters_t(command.value).number_or(0, 1, 0);
    if (!detailed) {
        return cms_invalid_text_parameter;
    }
    settings_.detailed = *detailed == 1;
    return at_ok;
}

std::optional<air::address_t> text_mode_t::destination(const at_parameters_t& parameters, size_t index) const {
    const std::optional<std::string> text = parameters.text(index);
    const std::optional<std::string> number = text ? from_host(*text, character_set_) : std::nullopt;
    return number ? address_of(*number, parameters, index) : std::nullopt;
}

std::optional<air::submit_t> text_mode_t::submission(std::string_view text, const air::address_t& destination) const {
    const unsigned first = settings_.first_octet;
    air::submit_t submit;
    submit.reject_duplicates = (first & bit_reject_duplicates) != 0;
    submit.status_report_request = (first & bit_status_report) != 0;
    submit.header_indicator = (first & bit_header) != 0;
    submit.reply_path = (first & bit_reply_path) != 0;
    submit.destination = destination;
    submit.protocol_identifier = static_cast<uint8_t>(settings_.protocol_identifier);
    submit.data_coding = static_cast<uint8_t>(settings_.data_coding);
    if ((first & validity_mask) == validity_relative) {
        submit.validity_period = static_cast<uint8_t>(settings_.validity);
    }
    if (!is_plain_text(submit.data_coding, submit.header_indicator)) {
        return set_octets(text, submit) ? std::optional(submit) : std::nullopt;
    }
    const std::optional<std::string> characters =
        from_host(character_set_ == character_set_t::ucs2 ? without_line_ends(text) : text, character_set_);
    return characters && set_characters(*characters, submit) ? std::optional(submit) : std::nullopt;
}

/// What is told of a message of either kind.
struct text_mode_t::fields_t {
    air::address_t address;
    std::string time;      // in quotes; empty of an SMS-SUBMIT
    std::string validity;  // likewise of an SMS-DELIVER
    unsigned first_octet;
    uint8_t protocol_identifier;
    uint8_t data_coding;
    uint8_t length;
    air::octets_t user_data;
};

std::optional<text_mode_t::fields_t> text_mode_t::fields_of(const air_message_t& message) {
    if (message.form != air_form_t::gsm_tpdu || message.octets.empty()) {
        return std::nullopt;
    }
    const unsigned first = message.octets[0];
    if (const auto deliver = air::decode_deliver(message.octets)) {
        return fields_t{deliver->originator,
                        fmt::format("\"{}\"", time_text(deliver->service_centre_time)),
                        {},
                        first,
                        deliver->protocol_identifier,
                        deliver->data_coding,
                        deliver->user_data_length,
                        deliver->user_data};
    }
    const auto submit = air::decode_submit(message.octets);
    if (!submit) {
        return std::nullopt;
    }
    return fields_t{submit->destination,
                    {},
                    submit->validity_period ? std::to_string(*submit->validity_period) : std::string(),
                    first,
                    submit->protocol_identifier,
                    submit->data_coding,
                    submit->user_data_length,
                    submit->user_data};
}

std::string text_mode_t::address(const air::address_t& address) const {
    return fmt::format("\"{}\"", to_host(air::number_from_address(address), character_set_));
}

/// What +CSDH adds to +CMGR and +CMT. A message to submit has its validity period there.
std::string text_mode_t::details(const fields_t& fields, std::string_view service_centre) const {
    if (!settings_.detailed) {
        return {};
    }
    const air::address_t centre = air::address_from_number(service_centre).value_or(air::address_t{});
    return fmt::format(",{},{},{},{}{},{},{},{}", type_of(fields.address), fields.first_octet,
                       fields.protocol_identifier, fields.data_coding, fields.time.empty() ? "," + fields.validity : "",
                       address(centre), type_of(centre), fields.length);
}

std::string text_mode_t::data(const fields_t& fields) const {
    if (!is_plain_text(fields.data_coding, (fields.first_octet & bit_header) != 0)) {
        return base::to_hex(fields.user_data);
    }
    return to_host(air::gsm_alphabet::to_utf8(air::gsm_alphabet::unpack(fields.user_data, fields.length)),
                   character_set_);
}

/// 3.4.3: <stat>,<oa>,[<alpha>],<scts>, or <stat>,<da>,[<alpha>].
std::optional<text_mode_t::told_t> text_mode_t::read(const stored_message_t& message,
                                                     std::string_view service_centre) const {
    const std::optional<fields_t> fields = fields_of(message.message);
    if (!fields) {
        return std::nullopt;
    }
    return told_t{fmt::format("\"{}\",{},{}{}", word_of(message.status), address(fields->address),
                              fields->time.empty() ? "" : "," + fields->time, details(*fields, service_centre)),
                  data(*fields)};
}

/// 3.4.2: <index>,<stat>,<oa/da>,[<alpha>],[<scts>][,<tooa/toda>,<length>].
std::optional<text_mode_t::told_t> text_mode_t::listed(size_t index, const stored_message_t& message) const {
    const std::optional<fields_t> fields = fields_of(message.message);
    if (!fields) {
        return std::nullopt;
    }
    return told_t{
        fmt::format("{},\"{}\",{},,{}{}", index, word_of(message.status), address(fields->address), fields->time,
                    settings_.detailed ? fmt::format(",{},{}", type_of(fields->address), fields->length) : ""),
        data(*fields)};
}

/// 3.4.1: <oa>,[<alpha>],<scts>.
std::optional<text_mode_t::told_t> text_mode_t::delivered(const air_message_t& message,
                                                          std::string_view service_centre) const {
    const std::optional<fields_t> fields = fields_of(message);
    if (!fields) {
        return std::nullopt;
    }
    return told_t{fmt::format("{},,{}{}", address(fields->address), fields->time, details(*fields, service_centre)),
                  data(*fields)};
}

}  // namespace network
