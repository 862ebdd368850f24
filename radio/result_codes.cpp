#include "radio/result_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <span>

#include "air/result_codes.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr int unknown_cms_error = 500;
constexpr int unknown_cme_error = 100;
constexpr int initialising = air::initialising;

/// What a person can do; of a code without a row nothing but wait.
struct advice_t {
    int code;
    std::string_view text;
};

constexpr std::string_view check_number = "check the number";
constexpr std::string_view ask_operator = "ask the operator whether the subscription includes short messages";
constexpr std::string_view check_sim = "check that a SIM is in the modem, the right way round";
constexpr std::string_view give_pin = "name a file with the SIM's PIN by --pin-file";
constexpr std::string_view use_phone = "put the SIM in a phone and unlock it there";
constexpr std::string_view one_operator = "the modem takes the SIMs of one operator only";
constexpr std::string_view free_memory = "delete messages from the modem";
constexpr std::string_view check_centre = "set the service centre's number (AT+CSCA)";
constexpr std::string_view check_network = "check the antenna and the reception";
constexpr std::string_view restart = "switch the modem off and on";

constexpr advice_t cms_advice[] = {
    {1, check_number},
    {8, ask_operator},
    {10, ask_operator},
    {21, ask_operator},
    {22, "the receiver's memory is full"},
    {27, "the receiver cannot be reached"},
    {28, ask_operator},
    {29, ask_operator},
    {30, check_number},
    {50, ask_operator},
    {69, ask_operator},
    {96, check_centre},
    {193, ask_operator},
    {195, check_number},
    {196, ask_operator},
    {208, free_memory},
    {211, free_memory},
    {300, restart},
    {301, "another program uses the modem: stop it"},
    {310, check_sim},
    {311, give_pin},
    {312, use_phone},
    {313, check_sim},
    {315, one_operator},
    {316, use_phone},
    {317, use_phone},
    {318, use_phone},
    {322, free_memory},
    {330, check_centre},
    {331, check_network},
    {332, check_network},
};

constexpr advice_t cme_advice[] = {
    {0, restart},      {5, use_phone},      {10, check_sim},         {11, give_pin},     {12, use_phone},
    {13, check_sim},   {15, one_operator},  {16, "correct the PIN"}, {17, use_phone},    {18, use_phone},
    {20, free_memory}, {30, check_network}, {31, check_network},     {32, ask_operator}, {40, one_operator},
};

/// What either of the two families has of its own.
struct family_t {
    std::string_view begin;  // of its lines
    int unknown;
    std::span<const air::result_code_t> codes;
    std::span<const advice_t> advice;
};
const family_t& family_of(final_result_t::kind_t kind) {
    static const family_t cms = {"+CMS ERROR:", unknown_cms_error, air::cms_errors(), cms_advice};
    static const family_t cme = {"+CME ERROR:", unknown_cme_error, air::cme_errors(), cme_advice};
    return kind == final_result_t::kind_t::cms_error ? cms : cme;
}

final_result_t error_of(final_result_t::kind_t kind, std::string_view text) {
    const family_t& family = family_of(kind);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    int code = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
    if (error == std::errc{} && end == text.data() + text.size() && code >= 0) {
        return {kind, code};
    }
    if (const std::optional<unsigned> known = air::number_of(family.codes, text)) {
        return {kind, static_cast<int>(*known)};
    }
    return {kind, family.unknown, std::string(text)};
}

}  // namespace

std::optional<final_result_t> final_result(std::string_view line) {
    using enum final_result_t::kind_t;
    if (line == "OK") {
        return final_result_t{ok, 0};
    }
    for (const final_result_t::kind_t kind : {cms_error, cme_error}) {
        if (const std::string_view begin = family_of(kind).begin; line.starts_with(begin)) {
            return error_of(kind, line.substr(begin.size()));
        }
    }
    // The last two come from modems of one maker in place of ERROR. NO CARRIER is no result of ours, who never dial: it
    // tells of an incoming call that was given up.
    for (const std::string_view text : {"ERROR", "COMMAND NOT SUPPORT", "TOO MANY PARAMETERS"}) {
        if (line == text) {
            return final_result_t{error, 0};
        }
    }
    return std::nullopt;
}

std::optional<final_result_t> numeric_result(std::string_view line) {
    if (line == "0") {
        return final_result_t{};
    }
    return line == "4" ? std::optional(final_result_t{final_result_t::kind_t::error, 0}) : std::nullopt;
}

std::string described(const final_result_t& result) {
    using enum final_result_t::kind_t;
    if (result.kind == ok || result.kind == error) {
        return result.kind == ok ? "done" : "refused without a reason";
    }
    const family_t& family = family_of(result.kind);
    if (!result.words.empty()) {
        return fmt::format("{} ({} unknown)", shown(result.words), family.begin);
    }
    const std::string code = fmt::format("({} {})", family.begin, result.code);
    const std::string_view words = air::words_of(family.codes, static_cast<unsigned>(result.code));
    if (words.empty()) {
        return fmt::format("unknown to the standard {}: the modem's manual has the code", code);
    }
    const auto known = std::ranges::find(family.advice, result.code, &advice_t::code);
    return known == family.advice.end() ? fmt::format("{} {}", words, code)
                                        : fmt::format("{} {}: {}", words, code, known->text);
}

bool not_ready_yet(const final_result_t& result) {
    using enum final_result_t::kind_t;
    constexpr int cms_sim_busy = 314;
    constexpr int cme_sim_busy = 14;
    return (result.kind == cms_error && (result.code == cms_sim_busy || result.code == initialising)) ||
           (result.kind == cme_error && (result.code == cme_sim_busy || result.code == initialising));
}

bool is_without_sim(const final_result_t& result) {
    using enum final_result_t::kind_t;
    return result == final_result_t{cms_error, 310} || result == final_result_t{cme_error, 10};
}

bool lacks_sim(const final_result_t& result) {
    using enum final_result_t::kind_t;
    constexpr std::array cms = {310, 313, 315};  // not inserted, failure, wrong
    constexpr std::array cme = {10, 13, 15};
    return (result.kind == cms_error && std::ranges::find(cms, result.code) != cms.end()) ||
           (result.kind == cme_error && std::ranges::find(cme, result.code) != cme.end());
}

bool is_duplicate(const final_result_t& result) {
    constexpr int duplicate = 197;
    return result.kind == final_result_t::kind_t::cms_error && result.code == duplicate;
}

bool tells_no_reason(const final_result_t& result) {
    using enum final_result_t::kind_t;
    return result.kind == error || (result.kind != ok && result.code == family_of(result.kind).unknown);
}

bool leaves_open(const final_result_t& result) {
    using enum final_result_t::kind_t;
    constexpr int cms_network_timeout = 332;
    constexpr int cme_network_timeout = 31;
    return (result.kind == cms_error && result.code == cms_network_timeout) ||
           (result.kind == cme_error && result.code == cme_network_timeout);
}

}  // namespace radio
