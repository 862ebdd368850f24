#include "network/service_centre.h"

#include <ctime>

#include "network/result_codes.h"

namespace network {

namespace {

constexpr long seconds_a_quarter = 900;

/// TP-Service-Centre-Time-Stamp: local time, 3GPP TS 23.040 9.2.3.11.
tpdu::timestamp_t timestamp_now() {
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    tpdu::timestamp_t stamp;
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

unsigned service_centre_t::submit(const std::string& originator, const tpdu::submit_t& submit) {
    const std::optional<tpdu::address_t> from = tpdu::address_from_number(originator);
    if (!from || submit.destination.type == tpdu::number_type_t::alphanumeric || submit.destination.text.empty()) {
        return cause_unidentified_subscriber;
    }
    if (statistics_.waiting >= max_waiting) {
        return cause_congestion;
    }
    tpdu::deliver_t deliver;
    deliver.reply_path = submit.reply_path;
    deliver.originator = *from;
    deliver.protocol_identifier = submit.protocol_identifier;
    deliver.data_coding = submit.data_coding;
    deliver.service_centre_time = timestamp_now();
    deliver.header_indicator = submit.header_indicator;
    deliver.user_data_length = submit.user_data_length;
    deliver.user_data = submit.user_data;
    queues_[submit.destination.text].push_back(std::move(deliver));
    ++statistics_.submitted;
    ++statistics_.waiting;
    return 0;
}

void service_centre_t::attach(const std::string& number, receiver_t& phone) {
    attached_[digits_of(number)] = {&phone, false};
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
        remove_first(queues_[attached->first]);
    }
}

void service_centre_t::deliver_waiting() {
    for (auto& [digits, attached] : attached_) {
        const auto queue = queues_.find(digits);
        if (queue == queues_.end()) {
            continue;
        }
        deliver_waiting(attached, queue->second);
        if (queue->second.empty()) {
            queues_.erase(queue);
        }
    }
}

void service_centre_t::deliver_waiting(attached_t& attached, queue_t& queue) {
    while (!queue.empty() && !attached.pending) {
        queue.front().more_messages = queue.size() > 1;  // TP-MMS, 3GPP TS 23.040 9.2.3.2
        const std::optional<tpdu::octets_t> tpdu = tpdu::encode(queue.front());
        const receiver_t::taken_t taken =
            tpdu ? attached.phone->deliver(*tpdu) : receiver_t::taken_t::acknowledged;  // never: it was a valid submit
        if (taken == receiver_t::taken_t::not_now) {
            return;
        }
        attached.pending = taken == receiver_t::taken_t::pending;
        if (!attached.pending) {
            remove_first(queue);
        }
    }
}

void service_centre_t::remove_first(queue_t& queue) {
    queue.pop_front();
    ++statistics_.delivered;
    --statistics_.waiting;
}

}  // namespace network
