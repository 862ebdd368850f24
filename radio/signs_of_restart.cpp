#include "radio/signs_of_restart.h"

#include <algorithm>
#include <array>

namespace radio {

bool announces_start(std::string_view line) {
    constexpr std::array<std::string_view, 6> whole = {"RDY",         "APP RDY", "^SYSSTART",
                                                       "*ATREADY: 1", "START",   "+WIND: 3"};
    return std::ranges::find(whole, line) != whole.end() || line.starts_with("^SYSSTART ");
}

bool tells_sim_state(std::string_view line) {
    return line.starts_with("+CPIN:");
}

bool tells_sim_state(const final_result_t& result) {
    using enum final_result_t::kind_t;
    const auto lies_in = [&](int first, int last) { return result.code >= first && result.code <= last; };
    return (result.kind == cms_error && lies_in(310, 318)) || (result.kind == cme_error && lies_in(10, 18));
}

bool is_reply_alone(std::string_view line) {
    return line.starts_with("+CMGL:") || line.starts_with("+CMGR:");
}

}  // namespace radio
