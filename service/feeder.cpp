#include "service/feeder.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "base/clock.h"
#include "com/zpd/zpd_ioctl.h"
#include "radio/limits.h"

using radio::limit_t;

namespace {

constexpr std::chrono::milliseconds looking{500};  // at what nobody tells of
constexpr uint64_t asking = 5'000;                 // milliseconds
constexpr uint64_t forgetting = 3'600'000;         // milliseconds
constexpr int64_t longest_wait = 3'600;            // seconds

int64_t seconds_until(int64_t time) {
    return std::clamp<int64_t>(time - base::unix_time(), 0, longest_wait);
}

}  // namespace

void feeder_t::start(const loaded_driver_t& driver) {
    driver_ = &driver;
    thread_ = std::thread([this] { run(); });
}

void feeder_t::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void feeder_t::finish() {
    for (const in_flight_t::state_t& message : in_flight_.look()) {
        if (message.complete) {
            static_cast<void>(outbox_.finish_sent(message.id));
        }
    }
}

void feeder_t::wake() {
    const std::lock_guard lock(mutex_);
    woken_ = true;
    changed_.notify_all();
}

void feeder_t::cancel(int64_t id) {
    const std::lock_guard lock(mutex_);
    cancelled_.push_back(id);
    woken_ = true;
    changed_.notify_all();
}

void feeder_t::run() {
    for (;;) {
        take_cancels();
        look();
        outbox_.expire();
        if (base::tick64() >= next_forgetting_) {
            outbox_.forget();
            next_forgetting_ = base::tick64() + forgetting;
        }
        feed();
        wait();
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            return;
        }
    }
}

void feeder_t::take_cancels() {
    std::vector<int64_t> cancelled;
    {
        const std::lock_guard lock(mutex_);
        cancelled.swap(cancelled_);
    }
    std::ranges::for_each(cancelled, [this](int64_t id) { cancel_now(id); });
    std::ranges::for_each(outbox_.end_leases(), [this](int64_t id) { cancel_now(id); });
}

// One that is not with the driver any more was sent in the meantime, or is to be cancelled without it.
void feeder_t::cancel_now(int64_t id) {
    if (!in_flight_.give_up(id, {ending_t::kind_t::cancelled}) && !in_flight_.has(id)) {
        static_cast<void>(outbox_.finish_cancelled(id, 0));
    }
}

void feeder_t::look() {
    looks_again_ = false;
    const bool asks = base::tick64() >= next_asking_;
    for (const in_flight_t::state_t& message : in_flight_.look()) {
        looks_again_ = !look_at(message, asks) || looks_again_;
    }
    if (asks) {
        next_asking_ = base::tick64() + asking;
    }
}

// True when it is over, and gone from here.
bool feeder_t::look_at(const in_flight_t::state_t& message, bool asks) {
    if (message.is_new) {
        outbox_.note_success(message.number);
        outbox_.note_progress(message.id, message.sent, message.driver_message);
    }
    if (!message.complete && !message.ending && message.expires != 0 && message.expires <= base::unix_time()) {
        static_cast<void>(in_flight_.give_up(
            message.id, {ending_t::kind_t::set_aside, {"it expired before all of it could be sent"}}));
        return false;
    }
    if (message.ending && message.driver_message && closed_.insert(*message.driver_message).second) {
        driver_->close(*message.driver_message);
    }
    const bool is_asked = message.ending || asks;
    const fate_t fate = message.complete ? fate_t::sent : is_asked ? fate_of(message) : fate_t::with_driver;
    if (fate == fate_t::with_driver || (!message.settled && !settle(message, fate == fate_t::sent))) {
        return false;
    }
    if (fate == fate_t::idle) {
        in_flight_.settle(message.id);
        return false;
    }
    if (message.driver_message && closed_.erase(*message.driver_message) == 0) {
        driver_->close(*message.driver_message);
    }
    in_flight_.end(message.id);
    return true;
}

// The driver has no record of a message any more that is closed and done with.
feeder_t::fate_t feeder_t::fate_of(const in_flight_t::state_t& message) const {
    using enum fate_t;
    if (!message.driver_message) {
        return with_driver;
    }
    const auto datagrams = driver_->datagrams(*message.driver_message);
    if (!datagrams) {
        return gone;
    }
    const auto has = [&](uint32_t status) { return std::ranges::count(*datagrams, status) != 0; };
    if (message.ending) {
        return has(ZPD_STATUS_SUBMITTED) || message.ending->kind == ending_t::kind_t::later ? with_driver : idle;
    }
    if (has(ZPD_STATUS_QUEUED) || has(ZPD_STATUS_SUBMITTED)) {
        return with_driver;
    }
    return has(ZPD_STATUS_FAILED) || has(ZPD_STATUS_DEFERRED) ? gone : sent;
}

bool feeder_t::settle(const in_flight_t::state_t& message, bool sent) {
    using enum ending_t::kind_t;
    if (sent) {
        return outbox_.finish_sent(message.id);
    }
    const ending_t ending = message.ending.value_or(ending_t{later, {"the driver gave it up; its log has the reason"}});
    switch (ending.kind) {
        case cancelled:
            return outbox_.finish_cancelled(message.id, message.sent);
        case later:
            return outbox_.refuse(message.id, message.refusals, ending.reason);
        default:
            return outbox_.set_aside(message.id, message.sent, message.refusals, ending.reason, ending.kind == refused);
    }
}

// Few at once: what was sent meanwhile is to be noted, for a kill sends again what is not.
void feeder_t::feed() {
    constexpr int most_at_once = 8;
    const auto ahead = radio::signed_value_of(limit_t::outbox_ahead);
    int handed_in = 0;
    while (base::tick64() >= next_feeding_ && in_flight_.outstanding() < ahead) {
        if (handed_in++ == most_at_once) {
            wake();
            return;
        }
        const std::optional<outbox_message_t> message = outbox_.take_next();
        if (!message) {
            return;
        }
        if (in_flight_.gives_up_equal(*message) || !hand_in(*message)) {
            static_cast<void>(outbox_.give_back(message->id));
            next_feeding_ = base::tick64() + radio::milliseconds(limit_t::outbox_again);
        }
    }
}

// False when the driver takes nothing now.
bool feeder_t::hand_in(const outbox_message_t& message) {
    in_flight_.begin(message);
    const loaded_driver_t::answer_t answer =
        driver_->send({message.octets, message.is_utf8, message.long_reference}, message.number);
    if (answer.error != ERROR_SUCCESS) {
        in_flight_.end(message.id);
        return false;
    }
    in_flight_.name(message.id, answer.value);
    looks_again_ = true;
    outbox_.note_progress(message.id, 0, answer.value);
    return true;
}

// The radio tells of all that matters but of the driver's letting go of a message.
void feeder_t::wait() {
    const auto due = outbox_.next_due();
    const auto lease_end = outbox_.next_lease_end();
    const uint64_t now = base::tick64();
    std::unique_lock lock(mutex_);
    std::chrono::milliseconds limit = std::chrono::seconds(due ? seconds_until(*due) : longest_wait);
    if (looks_again_) {
        limit = std::min(limit, looking);
    }
    if (lease_end) {
        limit = std::min(limit, std::chrono::milliseconds(*lease_end > now ? *lease_end - now : 0));
    }
    if (next_feeding_ > now) {
        limit = std::min(limit, std::chrono::milliseconds(next_feeding_ - now));
    }
    changed_.wait_for(lock, std::max(limit, std::chrono::milliseconds(1)), [this] { return woken_ || stopping_; });
    woken_ = false;
}
