/// Final result codes: 3GPP TS 27.007 5.6 and 9.2, 3GPP TS 27.005 3.2.5, in numbers and in words, and what each means
/// for a person. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace radio {

struct final_result_t {
    enum class kind_t { ok, error, cms_error, cme_error };
    kind_t kind = kind_t::ok;
    int code = 0;  // of cms_error and cme_error

    bool operator==(const final_result_t&) const = default;
};
std::optional<final_result_t> final_result(std::string_view line);
/// The same from a modem that answers in digits (V.250 6.2.6): "0" and "4".
std::optional<final_result_t> numeric_result(std::string_view line);

/// When a request that ended so may succeed.
enum class retry_t { now, later, after_network, never };

struct meaning_t {
    std::string_view text;
    retry_t retry = retry_t::later;
    std::string_view advice;  // what a person can do; empty for nothing but wait
};
meaning_t meaning_of(const final_result_t& result);
/// "SIM busy (+CME ERROR: 14)", with the advice behind it, where there is one.
std::string described(const final_result_t& result);

/// The SIM, or the modem's own start, is not finished yet: the same command succeeds a little later.
bool not_ready_yet(const final_result_t& result);
/// There is no SIM in the modem, or a broken or foreign one.
bool lacks_sim(const final_result_t& result);
/// The service centre has the message already (TP-FCS "SM rejected - duplicate SM", 3GPP TS 23.040 9.2.3.22).
bool is_duplicate(const final_result_t& result);
/// A refusal that may stand for anything: ERROR, or a code for what is unknown.
bool tells_no_reason(const final_result_t& result);
/// The network did not tell in time what became of the message.
bool leaves_open(const final_result_t& result);

}  // namespace radio
