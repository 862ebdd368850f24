#include "network/service_centre.h"

#include <algorithm>
#include <ctime>
#include <utility>

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
    queues_[submit.destination.text].messages.push_back(
        {.deliver = std::move(deliver), .identifier = identifier, .since = base::tick64()});
    touch(submit.destination.text);
    ++statistics_.submitted;
    ++statistics_.waiting;
    return 0;
}

bool service_centre_t::submit_as_it_stands(std::string_view number, air::octets_t tpdu) {
    if (statistics_.waiting >= max_waiting) {
        return false;
    }
    queues_[digits_of(number)].messages.push_back({.as_it_stands = std::move(tpdu), .since = base::tick64()});
    touch(std::string(number));
    ++statistics_.submitted;
    ++statistics_.waiting;
    return true;
}

size_t service_centre_t::waiting_for(std::string_view number) const {
    const auto queue = queues_.find(digits_of(number));
    return queue == queues_.end() ? 0 : queue->second.messages.size();
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
    touch(number);
}

void service_centre_t::detach(const std::string& number) {
    attached_.erase(digits_of(number));
    deadlines_.set(digits_of(number), std::nullopt);
}

void service_centre_t::acknowledge(const std::string& number, bool accepted) {
    const auto attached = attached_.find(digits_of(number));
    if (attached == attached_.end() || !attached->second.pending) {
        return;
    }
    attached->second.pending = false;
    if (accepted) {
        delivered_first(attached->first, attached->second, queues_[attached->first]);
    }
    touch(number);
}

void service_centre_t::touch(const std::string& number) {
    if (std::string digits = digits_of(number); queues_.contains(digits)) {
        touched_.insert(std::move(digits));
    }
}

std::set<std::string> service_centre_t::deliver_waiting() {
    for (std::string& digits : deadlines_.take_due(base::tick64())) {
        touched_.insert(std::move(digits));
    }
    std::set<std::string> offered = std::exchange(touched_, {});
    for (const std::string& digits : offered) {
        deliver_waiting(digits);
    }
    return offered;
}

void service_centre_t::deliver_waiting(const std::string& digits) {
    const auto attached = attached_.find(digits);
    const auto queue = queues_.find(digits);
    if (attached == attached_.end() || queue == queues_.end()) {
        return;
    }
    deadlines_.set(digits, std::nullopt);
    deliver_waiting(digits, attached->second, queue->second);
    if (queue->second.messages.empty()) {
        queues_.erase(queue);
    }
}

void service_centre_t::deliver_waiting(const std::string& digits, attached_t& attached, queue_t& queue) {
    while (!attached.pending && may_deliver(digits, attached, queue)) {
        waiting_t& first = queue.messages.front();
        first.deliver.more_messages = queue.messages.size() > 1;  // TP-MMS, 3GPP TS 23.040 9.2.3.2
        const std::optional<air_message_t> message = message_of(first, attached.phone->form());
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
            delivered_first(digits, attached, queue);
        }
    }
}

/// None for what does not cross to the phone's network.
std::optional<air_message_t> service_centre_t::message_of(const waiting_t& waiting, air_form_t form) {
    if (waiting.as_it_stands.empty()) {
        return delivery_of(waiting.deliver, waiting.identifier, form);
    }
    return form == air_form_t::gsm_tpdu ? std::optional(air_message_t{form, waiting.as_it_stands}) : std::nullopt;
}

/// When the first of the queue, which has one, may be delivered.
uint64_t service_centre_t::due(const attached_t& attached, const queue_t& queue) {
    return std::max(queue.messages.front().since + attached.faults->delay, attached.next_at);
}

/// What is held back to be reordered is turned round when enough of it has come.
bool service_centre_t::may_deliver(const std::string& digits, const attached_t& attached, queue_t& queue) {
    const faults_t& faults = *attached.faults;
    std::deque<waiting_t>& messages = queue.messages;
    if (messages.empty()) {
        return false;
    }
    if (const uint64_t at = due(attached, queue); at > base::tick64()) {
        deadlines_.set(digits, at);
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

std::optional<uint64_t> service_centre_t::deadline() const {
    return touched_.empty() ? deadlines_.first() : base::tick64();
}

void service_centre_t::delivered_first(const std::string& digits, const attached_t& attached, queue_t& queue) {
    ++statistics_.delivered;
    waiting_t& first = queue.messages.front();
    if (const auto raw = air::decode_deliver(first.as_it_stands); raw || first.as_it_stands.empty()) {
        arrivals_.add(digits, raw ? *raw : first.deliver);
    }
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
