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

/// What a person can do, and when a message goes that was refused so; a code without a row is tried later.
struct advice_t {
    int code;
    retry_t retry;
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
constexpr std::string_view full_receiver = "the receiver's memory is full";
constexpr std::string_view no_receiver = "the receiver cannot be reached";
constexpr std::string_view other_program = "another program uses the modem: stop it";
constexpr std::string_view wait;

using enum retry_t;

constexpr advice_t cms_advice[] = {
    {1, never, check_number},
    {8, never, ask_operator},
    {10, never, ask_operator},
    {21, later, ask_operator},
    {22, later, full_receiver},
    {27, later, no_receiver},
    {28, never, ask_operator},
    {29, never, ask_operator},
    {30, never, check_number},
    {41, now, wait},
    {50, never, ask_operator},
    {69, never, ask_operator},
    {81, now, wait},
    {95, never, wait},
    {96, never, check_centre},
    {97, never, wait},
    {98, now, wait},
    {99, never, wait},
    {128, never, wait},
    {129, never, wait},
    {130, never, wait},
    {143, never, wait},
    {144, never, wait},
    {145, never, wait},
    {159, never, wait},
    {176, never, wait},
    {193, never, ask_operator},
    {195, never, check_number},
    {196, never, ask_operator},
    {198, never, wait},
    {199, never, wait},
    {208, later, free_memory},
    {211, later, free_memory},
    {300, now, restart},
    {301, with_modem, other_program},
    {302, with_modem, wait},
    {303, never, wait},
    {304, never, wait},
    {310, with_modem, check_sim},
    {311, with_modem, give_pin},
    {312, with_modem, use_phone},
    {313, with_modem, check_sim},
    {314, with_modem, wait},
    {315, with_modem, one_operator},
    {316, with_modem, use_phone},
    {317, with_modem, use_phone},
    {318, with_modem, use_phone},
    {322, later, free_memory},
    {330, with_modem, check_centre},
    {331, with_modem, check_network},
    {332, with_modem, check_network},
    {air::initialising, with_modem, wait},
};

constexpr advice_t cme_advice[] = {
    {0, now, restart},
    {3, with_modem, wait},
    {4, never, wait},
    {5, with_modem, use_phone},
    {10, with_modem, check_sim},
    {11, with_modem, give_pin},
    {12, with_modem, use_phone},
    {13, with_modem, check_sim},
    {14, with_modem, wait},
    {15, with_modem, one_operator},
    {16, with_modem, "correct the PIN"},
    {17, with_modem, use_phone},
    {18, with_modem, use_phone},
    {20, later, free_memory},
    {30, with_modem, check_network},
    {31, with_modem, check_network},
    {32, with_modem, ask_operator},
    {40, with_modem, one_operator},
    {air::initialising, with_modem, wait},
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

/// Null when the table has none, and of a result without a code.
const advice_t* row_of(const final_result_t& result) {
    using enum final_result_t::kind_t;
    if (result.kind == ok || result.kind == error || !result.words.empty()) {
        return nullptr;
    }
    const std::span<const advice_t> advice = family_of(result.kind).advice;
    const auto row = std::ranges::find(advice, result.code, &advice_t::code);
    return row == advice.end() ? nullptr : &*row;
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

std::string words_of(const final_result_t& result) {
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
    return words.empty() ? fmt::format("unknown to the standard {}: the modem's manual has the code", code)
                         : fmt::format("{} {}", words, code);
}

std::string_view advice_on(const final_result_t& result) {
    const advice_t* const row = row_of(result);
    return row != nullptr ? row->text : std::string_view();
}

std::string described(const final_result_t& result) {
    const std::string_view advice = advice_on(result);
    return advice.empty() ? words_of(result) : fmt::format("{}: {}", words_of(result), advice);
}

retry_t retry_after(const final_result_t& result) {
    const advice_t* const row = row_of(result);
    return row != nullptr ? row->retry : retry_t::later;
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
