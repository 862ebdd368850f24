#include "radio/submitter.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "radio/assembly.h"
#include "radio/limits.h"
#include "radio/warning.h"

namespace radio {

namespace {

DWORD radio_error(const reply_t& reply) {
    switch (reply.outcome) {
        case reply_t::outcome_t::ok:  // of another command
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
    return reply.entry_sent && (reply.outcome != error || leaves_open(reply.result));
}

// The modem, or the network, refused the message itself, and did not say why.
bool is_unexplained(const reply_t& reply) {
    return reply.entry_sent && reply.outcome == reply_t::outcome_t::error && tells_no_reason(reply.result);
}

submission_outcome_t outcome_of(const reply_t& reply) {
    using enum submission_outcome_t::kind_t;
    if (reply.outcome == reply_t::outcome_t::error && !leaves_open(reply.result)) {
        return {refused, reply.result};
    }
    return {reply.entry_sent ? unknown : not_out};
}

bool offers(const std::vector<std::vector<int>>& offered, int value) {
    return std::ranges::find(offered[0], value) != offered[0].end();
}

}  // namespace

void submitter_t::forget() {
    link_keeping_ = 0;
    link_kept_ = false;
}

// 1 keeps the link until the next pause, 2 until it is switched off (3GPP TS 27.005 3.5.6).
bool submitter_t::set_up(setup_inquiry_t& inquiry) {
    const std::optional<reply_t> reply = inquiry.ask("AT+CMMS=?", "+CMMS:");
    if (reply && reply->ok()) {
        const std::vector<std::vector<int>> offered = offered_numbers(reply->first());
        link_keeping_ = offered.empty() || offers(offered, 1) ? 1 : offers(offered, 2) ? 2 : 0;
    }
    return reply.has_value();
}

void submitter_t::submit(const session_pointer_t& session, HRESULT request, const submission_t& submission,
                         bool more_follow) {
    const outgoing_t datagram = outgoing_of(submission);
    if (observer_ != nullptr && observer_->is_given_up(datagram)) {
        driver_pauses_ = false;
        callbacks_.result(session, RIL_RESULT_OK, request, 0);
        return;
    }
    if (const DWORD hindrance = what_hinders(submission); hindrance != 0) {
        end(session, request, datagram, {submission_outcome_t::kind_t::not_out}, hindrance);
        return;
    }
    open_submission_t& open = open_.begin(submission);
    const reply_t reply = open.sent ? reply_t{} : run(open, datagram.place.part, more_follow);
    // With its reference told the message is on its way, whether or not an OK follows.
    if (is_sent(reply) || (open.unknown && is_duplicate(reply.result)) || open.sent) {
        const uint16_t told = message_reference(reply.first()).value_or(open.reference);
        open_.learn(open, told);
        open_.close(open);
        told_refusals_.clear();
        board_.change([](modem_state_t& now) { now.note_success(); });
        end(session, request, datagram, {submission_outcome_t::kind_t::sent}, told);
        return;
    }
    tell_refusal(open, reply);
    keep_or_close(open, reply);
    end(session, request, datagram, outcome_of(reply), radio_error(reply));
}

void submitter_t::end(const session_pointer_t& session, HRESULT request, const outgoing_t& datagram,
                      const submission_outcome_t& outcome, DWORD data) {
    const bool sent = outcome.kind == submission_outcome_t::kind_t::sent;
    if (observer_ != nullptr) {
        observer_->submitted(datagram, outcome);
    }
    driver_pauses_ = !sent;
    callbacks_.result(session, sent ? RIL_RESULT_OK : RIL_RESULT_ERROR, request, data);
}

bool submitter_t::ends_pause(const session_pointer_t& session, HRESULT request) {
    if (!driver_pauses_.exchange(false)) {
        return false;
    }
    callbacks_.result(session, RIL_RESULT_OK, request, 0);
    return true;
}

// A radio error, or 0 when the message can go out. With the dialogue brought back comes a late result of the same
// datagram.
DWORD submitter_t::what_hinders(const submission_t& submission) {
    if (link_.ending() || submission.technology() != registration_.technology()) {
        return static_cast<DWORD>(RIL_E_RADIONOTPRESENT);
    }
    if (!link_.recover()) {
        return static_cast<DWORD>(link_.lost() ? RIL_E_RADIONOTPRESENT : RIL_E_NETWORKTIMEOUT);
    }
    return 0;
}

// An OK alone is an answer of a modem that never tells references; else it may be that to another command.
bool submitter_t::is_sent(const reply_t& reply) {
    tells_references_ = tells_references_ || !reply.lines.empty();
    return !reply.lines.empty() || (reply.ok() && !tells_references_);
}

// One that nobody knows of goes out again under its reference. A repetition that is refused without a reason may have
// been refused as a duplicate or for anything else: it goes out anew, for a copy is better than a loss.
void submitter_t::keep_or_close(open_submission_t& open, const reply_t& reply) {
    open.unknown = (open.unknown && !is_unexplained(reply)) || is_open(reply);
    if (!open.unknown) {
        open_.close(open);
    }
}

reply_t submitter_t::run(const open_submission_t& open, int part, bool more_follow) {
    std::optional<entry_t> entry = entry_of(open.submission, open.reference, open.unknown);
    if (!entry) {
        return {.outcome = reply_t::outcome_t::error, .result = {final_result_t::kind_t::error, 0}};
    }
    keep_link(more_follow);
    const auto is_late = [&](const std::string& line) {
        const std::optional<uint16_t> told = line.starts_with("+CMGS:") ? message_reference(line) : std::nullopt;
        return told && open_.is_of_another(open, *told);
    };
    const command_t command = {.line = fmt::format("AT+CMGS={}", entry->length),
                               .limit = limit_t::submission,
                               .shape = reply_shape_t::entry,
                               .prefixes = {"+CMGS:"},
                               .entry = std::move(entry->digits),
                               .is_late = is_late};
    reply_t reply = exchange_as_owed(command, part);
    link_kept_until_ = base::tick64() + milliseconds(limit_t::link_kept);
    return reply;
}

reply_t submitter_t::exchange_as_owed(const command_t& command, int part) {
    const owed_result_t owed{part, base::tick64() + milliseconds(command.limit)};
    board_.change([&](modem_state_t& now) { now.owed = owed; });
    reply_t reply = link_.exchange(command);
    board_.change([](modem_state_t& now) { now.owed.reset(); });
    return reply;
}

// Once a reason, until a datagram gets through: the driver hands a refused one in again.
void submitter_t::tell_refusal(const open_submission_t& open, const reply_t& reply) {
    if (open.unknown && is_unexplained(reply)) {
        warn("a repetition was refused without a reason; it goes out anew, and may arrive twice");
    } else if (reply.outcome == reply_t::outcome_t::error) {
        const std::string text = "a datagram was refused, " + described(reply.result);
        board_.change([&](modem_state_t& now) { now.note_refusal(text); });
        if (told_refusals_.insert(text).second) {
            warn(text);
        }
    } else if (is_open(reply) && !link_.ending()) {
        const char* unanswered = "the modem did not tell what became of a datagram, which is repeated";
        board_.change([&](modem_state_t& now) { now.note_refusal(unanswered); });
        warn("nobody knows whether a datagram was sent; a repetition will bear the same reference");
    }
}

void submitter_t::take_late_result(const std::string& line) {
    const std::optional<uint16_t> reference = message_reference(line);
    if (reference && open_.mark_sent(*reference)) {
        warn("a datagram that nobody knew of has been sent");
    }
}

// 3GPP TS 27.005 3.5.6: the modem itself forgets a 1 after some time without a submission, a 2 never.
void submitter_t::keep_link(bool more_follow) {
    const bool kept = link_kept_ && (link_keeping_ == 2 || base::tick64() < link_kept_until_);
    if (link_keeping_ != 0 && more_follow && !kept) {
        link_.exchange({.line = fmt::format("AT+CMMS={}", link_keeping_), .limit = limit_t::query});
    } else if (link_keeping_ == 2 && !more_follow && kept) {
        link_.exchange({.line = "AT+CMMS=0", .limit = limit_t::query});
    }
    link_kept_ = more_follow;
}

}  // namespace radio
