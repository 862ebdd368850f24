#include "network/result_codes.h"

#include <fmt/format.h>

#include <span>
#include <string_view>

namespace network {

namespace {

struct meaning_t {
    unsigned code;
    std::string_view text;
};

// 3GPP TS 27.007 9.2.1
constexpr meaning_t cme_meanings[] = {
    {3, "operation not allowed"}, {12, "SIM PUK required"},     {14, "SIM busy"},
    {16, "incorrect password"},   {50, "Incorrect parameters"},
};

// 3GPP TS 24.011 E-2 below 128, 3GPP TS 23.040 9.2.3.22 below 256, 3GPP TS 27.005 3.2.5 from 300
constexpr meaning_t cms_meanings[] = {
    {1, "Unassigned (unallocated) number"},
    {8, "Operator determined barring"},
    {10, "Call barred"},
    {21, "Short message transfer rejected"},
    {27, "Destination out of order"},
    {28, "Unidentified subscriber"},
    {29, "Facility rejected"},
    {30, "Unknown subscriber"},
    {38, "Network out of order"},
    {41, "Temporary failure"},
    {42, "Congestion"},
    {47, "Resources unavailable, unspecified"},
    {50, "Requested facility not subscribed"},
    {69, "Requested facility not implemented"},
    {96, "Invalid mandatory information"},
    {111, "Protocol error, unspecified"},
    {197, "SM rejected, duplicate SM"},
    {300, "ME failure"},
    {301, "SMS service of ME reserved"},
    {302, "operation not allowed"},
    {303, "operation not supported"},
    {304, "invalid PDU mode parameter"},
    {310, "(U)SIM not inserted"},
    {311, "(U)SIM PIN required"},
    {313, "(U)SIM failure"},
    {314, "(U)SIM busy"},
    {316, "(U)SIM PUK required"},
    {320, "memory failure"},
    {321, "invalid memory index"},
    {322, "memory full"},
    {330, "SMSC address unknown"},
    {331, "no network service"},
    {332, "network timeout"},
    {340, "no +CNMA acknowledgement expected"},
    {500, "unknown error"},
};

std::string coded(std::string_view prefix, unsigned code, bool verbose, std::span<const meaning_t> meanings) {
    if (verbose) {
        for (const meaning_t& meaning : meanings) {
            if (meaning.code == code) {
                return fmt::format("{}: {}", prefix, meaning.text);
            }
        }
    }
    return fmt::format("{}: {}", prefix, code);
}

}  // namespace

std::string result_text(at_result_t result, error_form_t form, bool numeric) {
    const bool verbose = form == error_form_t::verbose;
    switch (result.kind) {
        case at_result_t::kind_t::ok:
            return numeric ? "0" : "OK";
        case at_result_t::kind_t::cms_error:
            return coded("+CMS ERROR", result.code, verbose, cms_meanings);
        case at_result_t::kind_t::cme_error:
            if (form != error_form_t::plain) {
                return coded("+CME ERROR", result.code, verbose, cme_meanings);
            }
            [[fallthrough]];
        case at_result_t::kind_t::error:
            return numeric ? "4" : "ERROR";
        case at_result_t::kind_t::enter_text:
        case at_result_t::kind_t::nothing:
            break;
    }
    return {};
}

}  // namespace network
