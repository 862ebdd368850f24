// Final result codes: 3GPP TS 27.007 5.6 and 9, 3GPP TS 27.005 3.2.5, in numbers and in words.
#include <algorithm>
#include <cctype>
#include <charconv>

#include "radio/at_values.h"

namespace radio {

namespace {

constexpr int unknown_cms_error = 500;
constexpr int unknown_cme_error = 100;

struct cms_text_t {
    int code;
    std::string_view text;  // lower case, without the "(U)" of "(U)SIM"
};
constexpr cms_text_t cms_texts[] = {
    {300, "me failure"},
    {301, "sms service of me reserved"},
    {302, "operation not allowed"},
    {303, "operation not supported"},
    {304, "invalid pdu mode parameter"},
    {305, "invalid text mode parameter"},
    {310, "sim not inserted"},
    {311, "sim pin required"},
    {312, "ph-sim pin required"},
    {313, "sim failure"},
    {314, "sim busy"},
    {315, "sim wrong"},
    {316, "sim puk required"},
    {317, "sim pin2 required"},
    {318, "sim puk2 required"},
    {320, "memory failure"},
    {321, "invalid memory index"},
    {322, "memory full"},
    {330, "smsc address unknown"},
    {331, "no network service"},
    {332, "network timeout"},
    {340, "no +cnma acknowledgement expected"},
    {unknown_cms_error, "unknown error"},
};

std::string folded(std::string_view text) {
    std::string lower;
    for (const char c : text) {
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    const size_t universal = lower.find("(u)");
    if (universal != std::string::npos) {
        lower.erase(universal, 3);
    }
    return lower;
}

int error_code(std::string_view text, int unknown) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    int code = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
    if (error == std::errc{} && end == text.data() + text.size() && code >= 0) {
        return code;
    }
    return unknown;
}

int cms_error_code(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string lower = folded(text);
    for (const cms_text_t& row : cms_texts) {
        if (row.text == lower) {
            return row.code;
        }
    }
    return error_code(text, unknown_cms_error);
}

}  // namespace

std::optional<final_result_t> final_result(std::string_view line) {
    using enum final_result_t::kind_t;
    constexpr std::string_view cms = "+CMS ERROR:";
    constexpr std::string_view cme = "+CME ERROR:";
    if (line == "OK") {
        return final_result_t{ok, 0};
    }
    if (line.starts_with(cms)) {
        return final_result_t{cms_error, cms_error_code(line.substr(cms.size()))};
    }
    if (line.starts_with(cme)) {
        return final_result_t{cme_error, error_code(line.substr(cme.size()), unknown_cme_error)};
    }
    // The last two come from modems of one maker in place of ERROR.
    for (const std::string_view text : {"ERROR", "NO CARRIER", "COMMAND NOT SUPPORT", "TOO MANY PARAMETERS"}) {
        if (line == text) {
            return final_result_t{error, 0};
        }
    }
    return std::nullopt;
}

}  // namespace radio
