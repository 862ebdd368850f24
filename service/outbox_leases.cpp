// The messages that go only as long as who handed them in renews their leases.
#include <algorithm>

#include "base/clock.h"
#include "service/outbox.h"

using base::tick64;
using base::unix_time;

namespace {

constexpr uint64_t second = 1000;  // milliseconds

}  // namespace

void outbox_t::hold_lease(int64_t id, uint32_t seconds) {
    leases_.set(id, tick64() + seconds * second);
}

std::vector<int64_t> outbox_t::renew(uint32_t seconds, const std::vector<int64_t>& ids) {
    const std::lock_guard lock(mutex_);
    std::vector<int64_t> gone;
    for (const int64_t id : ids) {
        if (leases_.holds(id, tick64())) {
            hold_lease(id, seconds);
        } else {
            gone.push_back(id);
        }
    }
    return gone;
}

// What cannot be written stands as it was, and is tried again; what is with the driver goes no further all the same.
std::vector<int64_t> outbox_t::end_leases() {
    constexpr size_t most_at_once = 1000;  // others wait for the lock meanwhile
    std::vector<int64_t> with_driver;
    {
        const std::lock_guard lock(mutex_);
        const std::vector<int64_t> ended = leases_.ended(tick64(), most_at_once);
        if (ended.empty()) {
            return with_driver;
        }
        std::vector<outbox_message_t> messages;
        for (const int64_t id : ended) {
            if (auto message = outbox_file::read(file_, id)) {
                const auto progress = progress_.find(id);
                message->sent = progress == progress_.end() ? 0 : progress->second.sent;
                message->reason = {lease_ended};
                messages.push_back(*std::move(message));
            }
        }
        for (const outbox_message_t& message : messages) {
            if (message.state == outbox_state_t::sending) {
                with_driver.push_back(message.id);
            }
        }
        if (transaction(
                [&] {
                    return messages.size() == ended.size() &&
                           std::ranges::all_of(messages, [&](outbox_message_t& message) { return call_back(message); });
                },
                false)) {
            std::ranges::for_each(ended, [&](int64_t id) { note_called_back(id); });
        }
    }
    publish();
    return with_driver;
}

std::optional<uint64_t> outbox_t::next_lease_end() {
    const std::lock_guard lock(mutex_);
    const std::optional<uint64_t> end = leases_.next_end();
    const bool is_put_off = end && *end <= tick64() && again_ > unix_time();
    return is_put_off ? std::nullopt : end;
}
