#include "radio/modem_identity.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "radio/at_values.h"

namespace radio {

namespace {

// Digits of an IMEI or a MEID, as a bare line, between quotation marks or behind the command's name.
bool is_serial_number(const std::string& text) {
    constexpr size_t fewest = 8;  // of an ESN
    return text.size() >= fewest && std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string without_quotation_marks(std::string text) {
    std::erase(text, '"');
    return text;
}

// Enough to tell two modems apart, for a message that is passed on to others.
std::string end_of(const std::string& number) {
    constexpr size_t shown = 4;
    return "..." + number.substr(number.size() - shown);
}

}  // namespace

bool is_bare_answer(const std::string& line) {
    return std::isalnum(static_cast<unsigned char>(line[0])) != 0 && line != "RING" && line != "NO CARRIER";
}

bool modem_identity_t::set_up(setup_inquiry_t& inquiry) {
    told_.clear();
    asking_ = true;
    const std::optional<reply_t> reply = inquiry.ask("AT+CGSN", "+CGSN:");
    if (const std::vector<value_t> values = values_of(reply ? reply->first() : std::string()); !values.empty()) {
        take(values[0].text);
    }
    asking_ = false;
    if (!reply) {
        return false;
    }
    if (!number_.empty() && !told_.empty() && told_ != number_) {
        return inquiry.fail_modem(
            fmt::format("is another one, serial number {} and not {}: plug in that which was there,"
                        " or start the service anew",
                        end_of(told_), end_of(number_)));
    }
    number_ = told_.empty() ? number_ : told_;
    if (!ask_words(inquiry, "+CGMI", maker_) || !ask_words(inquiry, "+CGMM", model_)) {
        return false;
    }
    board_.change([this](modem_state_t& now) {
        now.maker = maker_;
        now.model = model_;
        now.serial_number = number_;
    });
    return true;
}

// 3GPP TS 27.007 5.1, 5.2: a bare line, or one behind the command's name.
bool modem_identity_t::ask_words(setup_inquiry_t& inquiry, const std::string& name, std::string& words) {
    if (!words.empty()) {
        return true;
    }
    words_ = &words;
    const std::optional<reply_t> reply = inquiry.ask("AT" + name, name + ":");
    words_ = nullptr;
    if (const std::vector<value_t> values = values_of(reply ? reply->first() : std::string()); !values.empty()) {
        words = values[0].text;
    }
    return reply.has_value();
}

bool modem_identity_t::take(const std::string& line) {
    const std::string text = without_quotation_marks(line);
    if (words_ != nullptr && words_->empty() && is_bare_answer(line)) {
        *words_ = text;
        return true;
    }
    if (!asking_ || !is_serial_number(text)) {
        return false;
    }
    told_ = text;
    return true;
}

}  // namespace radio
