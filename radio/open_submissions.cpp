#include "radio/open_submissions.h"

#include <algorithm>
#include <random>
#include <vector>

#include "radio/limits.h"

namespace radio {

open_submissions_t::open_submissions_t() : last_reference_(static_cast<uint8_t>(std::random_device()())) {}

uint16_t open_submissions_t::next_reference(const submission_t& submission) {
    if (const auto* const cdma = std::get_if<air::cdma::message_t>(&submission.message)) {
        return cdma->identifier;
    }
    last_reference_ = last_reference_ == 255 ? 1 : static_cast<uint8_t>(last_reference_ + 1);
    return last_reference_;
}

open_submission_t& open_submissions_t::begin(const submission_t& submission) {
    const auto at = std::ranges::find(all_, submission, &open_submission_t::submission);
    if (at != all_.end()) {
        return *at;
    }
    if (all_.size() == value_of(limit_t::unknown_submissions)) {
        all_.pop_front();
    }
    return all_.emplace_back(open_submission_t{submission, next_reference(submission)});
}

void open_submissions_t::close(const open_submission_t& submission) {
    std::erase_if(all_, [&](const open_submission_t& one) { return &one == &submission; });
}

void open_submissions_t::learn(const open_submission_t& submission, uint16_t told) {
    modem_counts_ = modem_counts_ || told != submission.reference;
}

bool open_submissions_t::is_of_another(const open_submission_t& submission, uint16_t told) const {
    return !modem_counts_ && told != submission.reference &&
           std::ranges::any_of(all_,
                               [&](const open_submission_t& one) { return one.unknown && one.reference == told; });
}

bool open_submissions_t::mark_sent(uint16_t told) {
    std::vector<open_submission_t*> candidates;
    for (open_submission_t& one : all_) {
        if (one.unknown && !one.sent && (modem_counts_ || one.reference == told)) {
            candidates.push_back(&one);
        }
    }
    if (candidates.size() != 1) {
        return false;
    }
    candidates.front()->sent = true;
    return true;
}

}  // namespace radio
