// Outgoing messages: AT+CMGS, 3GPP TS 27.005 4.3.
#include <fmt/format.h>
#include <platform/linux/hex.h>

#include "radio/modem.h"

namespace radio {

namespace {

DWORD radio_error(const reply_t& reply) {
    switch (reply.outcome) {
        case reply_t::outcome_t::timeout:
            return static_cast<DWORD>(RIL_E_NETWORKTIMEOUT);
        case reply_t::outcome_t::lost:
            return static_cast<DWORD>(RIL_E_RADIONOTPRESENT);
        default:
            break;
    }
    if (reply.result.kind == final_result_t::kind_t::cms_error) {
        return static_cast<DWORD>(RIL_E_CMSERROR_BASE) | (static_cast<DWORD>(reply.result.code) & 0xFFFF);
    }
    return static_cast<DWORD>(RIL_E_PHONEFAILURE);
}

}  // namespace

void modem_t::run_submission(const session_pointer_t& session, HRESULT request, const submission_t& submission,
                             bool more_follow) {
    const std::optional<tpdu::octets_t> pdu = tpdu::encode_pdu({.service_centre = {}, .tpdu = submission.octets});
    if (link_.ending() || !pdu) {
        callbacks_.result(session, RIL_RESULT_ERROR, request, static_cast<DWORD>(RIL_E_RADIONOTPRESENT));
        return;
    }
    if (keeps_link_ && more_follow && !link_kept_) {
        link_.exchange({.line = "AT+CMMS=1", .limit = limit_t::query});
    }
    link_kept_ = more_follow;
    const reply_t reply = link_.exchange({.line = fmt::format("AT+CMGS={}", submission.octets.size()),
                                          .limit = limit_t::submission,
                                          .prefixes = {"+CMGS:"},
                                          .entry = platform::to_hex(*pdu)});
    // With its reference told the message is on its way, whether or not an OK follows.
    if (reply.ok() || !reply.lines.empty()) {
        callbacks_.result(session, RIL_RESULT_OK, request, message_reference(reply.first()).value_or(0));
    } else {
        callbacks_.result(session, RIL_RESULT_ERROR, request, radio_error(reply));
    }
}

}  // namespace radio
