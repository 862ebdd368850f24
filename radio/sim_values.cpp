#include "radio/sim_values.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "radio/at_values.h"

namespace radio {

namespace {

constexpr tries_question_t questions_for_tries[] = {
    {"AT+CPINR", "+CPINR:", "SIM PIN"},    // 3GPP TS 27.007 8.65: a line each password
    {"AT^CPIN?", "^CPIN:", "SIM PIN"},     // Huawei: the wanted password and its tries, then those of all
    {"AT+QPINC=\"SC\"", "+QPINC:", "SC"},  // Quectel: tries of the PIN and of the PUK
    {"AT#PCT", "#PCT:", ""},               // Telit: tries of what is wanted
    {"AT^SPIC", "^SPIC:", ""},             // Siemens, Cinterion: likewise
    {"AT+SPIC", "+SPIC:", ""},             // SIMCom: PIN, PUK, PIN2, PUK2
    {"AT+UPINCNT", "+UPINCNT:", ""},       // u-blox: PIN, PIN2, PUK, PUK2
    {"AT+CPINC", "+CPINC:", ""},           // Wavecom, Sierra: likewise
};

// EF-ICCID can be read before the PIN (ETSI TS 102 221 13.2); 3GPP TS 27.007 8.18 reads it where the modem lets.
constexpr std::string_view questions_for_card[] = {
    "AT+CRSM=176,12258,0,0,10", "AT+CCID", "AT^ICCID?", "AT+QCCID", "AT+ICCID", "AT+CICCID", "AT#CCID", "AT^SCID",
};
constexpr std::string_view replies_of_card[] = {
    "+CRSM:", "+CCID", "CCID",  "^ICCID", "+ICCID", "ICCID", "+QCCID", "+CICCID",
    "#CCID",  "%CCID", "*CCID", "^SCID",  "SCID",   "\"89",  "89",     "98",
};

bool is_digit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

// As the octets of EF-ICCID hold it: the lower half of each comes first.
void swap_halves(std::string& digits) {
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        std::swap(digits[i], digits[i + 1]);
    }
}

void remove_padding(std::string& digits) {
    digits.resize(digits.find_last_not_of('F') + 1);
}

}  // namespace

std::span<const tries_question_t> tries_questions() {
    return questions_for_tries;
}

std::optional<int> tries_left(const tries_question_t& question, std::string_view line) {
    constexpr int most = 15;
    const size_t place = question.password.empty() ? 0 : 1;
    const std::vector<value_t> values = values_of(line);
    const std::vector<std::vector<int>> numbers = offered_numbers(line);
    const bool told = line.starts_with(question.reply) && values.size() > place && numbers[place].size() == 1 &&
                      (place == 0 || values[0].text == question.password);
    const int left = told ? numbers[place][0] : -1;
    return left >= 0 && left <= most ? std::optional(left) : std::nullopt;
}

std::span<const std::string_view> card_questions() {
    return questions_for_card;
}

std::span<const std::string_view> card_replies() {
    return replies_of_card;
}

// Some modems tell the file's octets as they are, Huawei's older ones for one: every ICCID begins with 89, for
// telecommunication.
std::optional<std::string> card_identity(std::string_view line) {
    constexpr size_t least = 18;
    constexpr size_t most = 20;
    for (auto begin = line.begin(); begin != line.end();) {
        begin = std::find_if(begin, line.end(), is_digit);
        const auto end = std::find_if_not(begin, line.end(), is_digit);
        std::string digits(begin, end);
        begin = end;
        std::ranges::transform(digits, digits.begin(),
                               [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        if (digits.starts_with("98")) {
            swap_halves(digits);
        }
        remove_padding(digits);
        if (digits.size() >= least && digits.size() <= most) {
            return digits;
        }
    }
    return std::nullopt;
}

// The name before it may be empty, and the number of an unused place of the SIM is.
std::optional<std::string> own_number(std::string_view line) {
    constexpr size_t most_digits = 15;            // ITU-T E.164
    constexpr const char* international = "145";  // <type>, 3GPP TS 24.008 10.5.4.7
    const std::vector<value_t> values = values_of(line);
    if (!line.starts_with("+CNUM:") || values.size() < 2) {
        return std::nullopt;
    }
    const bool has_sign = values[1].text.starts_with('+');
    const std::string digits = values[1].text.substr(has_sign ? 1 : 0);
    if (digits.empty() || digits.size() > most_digits || digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const bool is_international = has_sign || (values.size() > 2 && values[2].text == international);
    return (is_international ? "+" : "") + digits;
}

}  // namespace radio
