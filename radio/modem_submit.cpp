// Outgoing messages: AT+CMGS, 3GPP TS 27.005 4.3.
#include <fmt/format.h>

#include "base/hex.h"
#include "radio/modem.h"
#include "radio/warning.h"

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

// The modem had the message, and nobody knows what became of it.
bool is_open(const reply_t& reply) {
    using enum reply_t::outcome_t;
    return reply.entry_sent && (reply.outcome == timeout || reply.outcome == lost || leaves_open(reply.result));
}

// Only a GSM modem takes a service centre address before the message.
std::optional<air::octets_t> pdu_of(technology_t technology, const air::octets_t& message) {
    return technology == technology_t::gsm ? air::encode_pdu({{}, message}) : message;
}

}  // namespace

void modem_t::answer_submission(const session_pointer_t& session, HRESULT request, const submission_t& submission,
                                bool more_follow) {
    const auto failed = [&](DWORD error) { callbacks_.result(session, RIL_RESULT_ERROR, request, error); };
    if (link_.ending() || submission.technology != technology_) {
        failed(static_cast<DWORD>(RIL_E_RADIONOTPRESENT));
        return;
    }
    if (!link_.recover()) {  // with it comes a late result of the same datagram
        failed(static_cast<DWORD>(lost() ? RIL_E_RADIONOTPRESENT : RIL_E_NETWORKTIMEOUT));
        return;
    }
    open_submission_t& open = open_.begin(submission);
    const reply_t reply = open.sent ? reply_t{} : run_submission(open, submission, more_follow);
    // With its reference told the message is on its way, whether or not an OK follows.
    if (reply.ok() || !reply.lines.empty() || (open.unknown && is_duplicate(reply.result)) || open.sent) {
        const uint16_t told = message_reference(reply.first()).value_or(open.reference);
        open_.learn(open, told);
        open_.close(open);
        told_refusals_.clear();
        callbacks_.result(session, RIL_RESULT_OK, request, told);
        return;
    }
    open.unknown = open.unknown || is_open(reply);
    if (!open.unknown) {
        open_.close(open);
    }
    tell_refusal(reply);
    failed(radio_error(reply));
}

reply_t modem_t::run_submission(const open_submission_t& open, const submission_t& submission, bool more_follow) {
    const std::optional<air::octets_t> message = with_reference(submission, open.reference, open.unknown);
    const std::optional<air::octets_t> pdu = message ? pdu_of(submission.technology, *message) : std::nullopt;
    if (!pdu) {
        return {.outcome = reply_t::outcome_t::error, .result = {final_result_t::kind_t::error, 0}};
    }
    keep_link(more_follow);
    const auto is_late = [&](const std::string& line) {
        const std::optional<uint16_t> told = line.starts_with("+CMGS:") ? message_reference(line) : std::nullopt;
        return told && open_.is_of_another(open, *told);
    };
    reply_t reply = link_.exchange({.line = fmt::format("AT+CMGS={}", message->size()),
                                    .limit = limit_t::submission,
                                    .prefixes = {"+CMGS:"},
                                    .entry = base::to_hex(*pdu),
                                    .is_late = is_late});
    link_kept_until_ = base::tick64() + milliseconds(limit_t::link_kept);
    return reply;
}

// Once a code, until a datagram gets through: the driver hands a refused one in again.
void modem_t::tell_refusal(const reply_t& reply) {
    if (reply.outcome == reply_t::outcome_t::error) {
        if (told_refusals_.insert({reply.result.kind, reply.result.code}).second) {
            warn("a datagram was refused, " + described(reply.result));
        }
    } else if (is_open(reply) && !link_.ending()) {
        warn("nobody knows whether a datagram was sent; a repetition will bear the same reference");
    }
}

void modem_t::take_late_result(const std::string& line) {
    const std::optional<uint16_t> reference = message_reference(line);
    if (reference && open_.mark_sent(*reference)) {
        warn("a datagram that nobody knew of has been sent");
    }
}

// 3GPP TS 27.005 3.5.6: the modem itself forgets a 1 after some time without a submission, a 2 never.
void modem_t::keep_link(bool more_follow) {
    const bool kept = link_kept_ && (link_keeping_ == 2 || base::tick64() < link_kept_until_);
    if (link_keeping_ != 0 && more_follow && !kept) {
        link_.exchange({.line = fmt::format("AT+CMMS={}", link_keeping_), .limit = limit_t::query});
    } else if (link_keeping_ == 2 && !more_follow && kept) {
        link_.exchange({.line = "AT+CMMS=0", .limit = limit_t::query});
    }
    link_kept_ = more_follow;
}

}  // namespace radio
