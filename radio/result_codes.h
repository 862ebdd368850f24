/// Final result codes as a modem sends them, V.250 5.7.1 and air/result_codes.h, in numbers and in words, and what a
/// person can do about each. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace radio {

struct final_result_t {
    enum class kind_t { ok, error, cms_error, cme_error };
    kind_t kind = kind_t::ok;
    int code = 0;         // of cms_error and cme_error; of words that no standard has it is "unknown"
    std::string words{};  // those, as the modem sent them

    bool operator==(const final_result_t&) const = default;
};
std::optional<final_result_t> final_result(std::string_view line);
/// The same from a modem that answers in digits (V.250 6.2.6): "0" and "4".
std::optional<final_result_t> numeric_result(std::string_view line);

/// For a person: "SIM busy (+CME ERROR: 14)", or the modem's own words.
std::string words_of(const final_result_t& result);
/// What a person can do about it; empty where there is nothing but to wait.
std::string_view advice_on(const final_result_t& result);
/// Both, with a colon between them.
std::string described(const final_result_t& result);

/// When a message that was refused so can go.
enum class retry_t : uint8_t {
    now,         // the same again may succeed
    later,       // after some time
    with_modem,  // nothing goes until something is done about the modem, its SIM or its network
    never,
};
retry_t retry_after(const final_result_t& result);

/// The SIM, or the modem's own start, is not finished yet: the same command succeeds a little later.
bool not_ready_yet(const final_result_t& result);
/// There is no SIM in the modem, or it has not been found yet.
bool is_without_sim(const final_result_t& result);
/// There is no SIM in the modem, or a broken or foreign one.
bool lacks_sim(const final_result_t& result);
/// The service centre has the message already (TP-FCS "SM rejected - duplicate SM", 3GPP TS 23.040 9.2.3.22).
bool is_duplicate(const final_result_t& result);
/// A refusal that may stand for anything: ERROR, or a code for what is unknown.
bool tells_no_reason(const final_result_t& result);
/// The network did not tell in time what became of the message.
bool leaves_open(const final_result_t& result);

}  // namespace radio
