#include "radio/open_submissions.h"

#include <algorithm>
#include <random>
#include <utility>

#include "radio/limits.h"

namespace radio {

open_submissions_t::open_submissions_t() : last_reference_(static_cast<uint8_t>(std::random_device()())) {}

uint16_t open_submissions_t::next_reference(const submission_t& submission) {
    if (submission.technology == technology_t::cdma) {
        return submission.reference;
    }
    last_reference_ = last_reference_ == 255 ? 1 : static_cast<uint8_t>(last_reference_ + 1);
    return last_reference_;
}

std::optional<open_submission_t> open_submissions_t::take(const tpdu::octets_t& octets) {
    const auto at = std::ranges::find(all_, octets, &open_submission_t::octets);
    if (at == all_.end()) {
        return std::nullopt;
    }
    open_submission_t found = std::move(*at);
    all_.erase(at);
    return found;
}

void open_submissions_t::put(open_submission_t submission) {
    all_.push_back(std::move(submission));
    if (all_.size() > value_of(limit_t::unknown_submissions)) {
        all_.pop_front();
    }
}

bool open_submissions_t::mark_sent(uint16_t reference) {
    if (all_.empty()) {
        return false;
    }
    const auto at = std::ranges::find(all_, reference, &open_submission_t::reference);
    (at == all_.end() ? all_.back() : *at).sent = true;
    return true;
}

// Only an SMS-SUBMIT has them. A CDMA message that goes out again has the identifier that it had.
std::optional<tpdu::octets_t> with_reference(const submission_t& submission, uint16_t reference,
                                             bool reject_duplicates) {
    if (submission.technology != technology_t::gsm) {
        return submission.octets;
    }
    std::optional<tpdu::submit_t> submit = tpdu::decode_submit(submission.octets);
    if (!submit) {
        return std::nullopt;
    }
    submit->message_reference = static_cast<uint8_t>(reference);
    submit->reject_duplicates = reject_duplicates;
    return tpdu::encode(*submit);
}

}  // namespace radio
