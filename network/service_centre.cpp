#include "network/service_centre.h"

#include <algorithm>
#include <ctime>

#include "base/clock.h"
#include "network/result_codes.h"

namespace network {

namespace {

constexpr long seconds_a_quarter = 900;

/// TP-Service-Centre-Time-Stamp: local time, 3GPP TS 23.040 9.2.3.11.
air::timestamp_t timestamp_now() {
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    air::timestamp_t stamp;
    stamp.year = static_cast<uint8_t>(local.tm_year % 100);
    stamp.month = static_cast<uint8_t>(local.tm_mon + 1);
    stamp.day = static_cast<uint8_t>(local.tm_mday);
    stamp.hour = static_cast<uint8_t>(local.tm_hour);
    stamp.minute = static_cast<uint8_t>(local.tm_min);
    stamp.second = static_cast<uint8_t>(local.tm_sec);
    stamp.quarters_east = static_cast<int8_t>(local.tm_gmtoff / seconds_a_quarter);
    return stamp;
}

}  // namespace

std::string digits_of(std::string_view number) {
    return std::string(number.substr(number.starts_with('+') ? 1 : 0));
}

unsigned service_centre_t::submit(const std::string& originator, const submission_t& submission) {
    const air::submit_t& submit = submission.submit;
    const bool on_cdma = submission.form == air_form_t::cdma_point_to_point;
    const std::optional<air::address_t> from = air::address_from_number(originator);
    if (!from || submit.destination.type == air::number_type_t::alphanumeric || submit.destination.text.empty()) {
        return cause_unidentified_subscriber;
    }
    if (statistics_.waiting >= max_waiting) {
        return cause_congestion;
    }
    const bool repetition = is_repetition(digits_of(originator), {submit.destination.text, submission.reference,
                                                                  on_cdma ? submit.user_data : air::octets_t{}});
    if (repetition && (submit.reject_duplicates || on_cdma)) {
        return on_cdma ? 0 : cause_duplicate;
    }
    air::deliver_t deliver;
    deliver.reply_path = submit.reply_path;
    deliver.originator = *from;
    deliver.protocol_identifier = submit.protocol_identifier;
    deliver.data_coding = submit.data_coding;
    deliver.service_centre_time = timestamp_now();
    deliver.header_indicator = submit.header_indicator;
    deliver.user_data_length = submit.user_data_length;
    deliver.user_data = submit.user_data;
    const auto identifier = static_cast<uint16_t>(statistics_.submitted);
    // Refused while there is a sender to tell.
    const auto attached = attached_.find(submit.destination.text);
    if (attached != attached_.end() && !delivery_of(deliver, identifier, attached->second.phone->form())) {
        return cause_facility_not_subscribed;
    }
    queues_[submit.destination.text].messages.push_back({std::move(deliver), identifier, base::tick64()});
    ++statistics_.submitted;
    ++statistics_.waiting;
    return 0;
}

/// TP-Reject-Duplicates, 3GPP TS 23.040 9.2.3.25: by originator, destination and TP-MR. On CDMA a copy is known by the
/// identifier and what it holds, and taken without being passed on again.
bool service_centre_t::is_repetition(const std::string& originator, const remembered_t& submission) {
    std::deque<remembered_t>& known = remembered_[originator];
    if (std::ranges::find(known, submission) != known.end()) {
        return true;
    }
    known.push_back(submission);
    if (known.size() > max_remembered) {
        known.pop_front();
    }
    return false;
}

void service_centre_t::attach(const std::string& number, receiver_t& phone, const faults_t& faults) {
    attached_[digits_of(number)] = {&phone, &faults};
}

void service_centre_t::detach(const std::string& number) {
    attached_.erase(digits_of(number));
}

void service_centre_t::acknowledge(const std::string& number, bool accepted) {
    const auto attached = attached_.find(digits_of(number));
    if (attached == attached_.end() || !attached->second.pending) {
        return;
    }
    attached->second.pending = false;
    if (accepted) {
        delivered_first(attached->second, queues_[attached->first]);
    }
}

void service_centre_t::deliver_waiting() {
    for (auto& [digits, attached] : attached_) {
        attached.waits_until.reset();
        const auto queue = queues_.find(digits);
        if (queue == queues_.end()) {
            continue;
        }
        deliver_waiting(attached, queue->second);
        if (queue->second.messages.empty()) {
            queues_.erase(queue);
        }
    }
}

void service_centre_t::deliver_waiting(attached_t& attached, queue_t& queue) {
    while (!attached.pending && may_deliver(attached, queue)) {
        waiting_t& first = queue.messages.front();
        first.deliver.more_messages = queue.messages.size() > 1;  // TP-MMS, 3GPP TS 23.040 9.2.3.2
        const std::optional<air_message_t> message =
            delivery_of(first.deliver, first.identifier, attached.phone->form());
        if (!message) {  // it has waited for a phone that is on another network now
            remove_first(queue);
            continue;
        }
        const receiver_t::taken_t taken = attached.phone->deliver(*message);
        if (taken == receiver_t::taken_t::not_now) {
            return;
        }
        attached.pending = taken == receiver_t::taken_t::pending;
        attached.next_at = base::tick64() + attached.faults->delivery_gap;
        if (!attached.pending) {
            delivered_first(attached, queue);
        }
    }
}

/// When the first of the queue, which has one, may be delivered.
uint64_t service_centre_t::due(const attached_t& attached, const queue_t& queue) {
    return std::max(queue.messages.front().since + attached.faults->delay, attached.next_at);
}

/// What is held back to be reordered is turned round when enough of it has come.
bool service_centre_t::may_deliver(attached_t& attached, queue_t& queue) {
    const faults_t& faults = *attached.faults;
    std::deque<waiting_t>& messages = queue.messages;
    if (messages.empty()) {
        return false;
    }
    if (const uint64_t at = due(attached, queue); at > base::tick64()) {
        attached.waits_until = at;
        return false;
    }
    if (queue.released == 0 && faults.reordered > 0) {
        if (messages.size() < faults.reordered) {
            return false;
        }
        queue.released = faults.reordered;
        std::reverse(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(queue.released));
    }
    return true;
}

// As deliver_waiting found it: by the present time one may be due already.
std::optional<uint64_t> service_centre_t::deadline() const {
    std::optional<uint64_t> earliest;
    for (const auto& [digits, attached] : attached_) {
        if (attached.waits_until && *attached.waits_until < earliest.value_or(UINT64_MAX)) {
            earliest = attached.waits_until;
        }
    }
    return earliest;
}

void service_centre_t::delivered_first(const attached_t& attached, queue_t& queue) {
    ++statistics_.delivered;
    waiting_t& first = queue.messages.front();
    if (attached.faults->duplicates && !first.repeated) {
        first.repeated = true;
        return;
    }
    remove_first(queue);
}

void service_centre_t::remove_first(queue_t& queue) {
    queue.messages.pop_front();
    queue.released -= std::min<size_t>(queue.released, 1);
    --statistics_.waiting;
}

}  // namespace network
