/// The cards that a modem's outbox has from the queue: by their ids, with what the server is told of them. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "relay/nats.h"

namespace fleet {

/// One of them. It can be copied; its message in the queue is one.
struct lease_t {
    uint64_t card = 0;     // its id
    uint64_t digest = 0;   // that tells it from another one with this id
    uint64_t message = 0;  // of the outbox; 0 until that has it
    uint64_t datagrams = 0;
    std::string reply;                              // a subject that gets its results; empty for none
    bool is_cancelled = false;                      // who handed it in has called it back
    bool is_put_back = false;                       // the relay has, for another modem
    bool is_held = false;                           // its number was refused, and is tried again later
    std::shared_ptr<const nats::message_t> queued;  // to be acknowledged, or given back
};

class lease_table_t {
  public:
    /// Before the outbox has it, for it may be sent at once. One that is here already goes on under the new message,
    /// which the server has given a second time: false. False, too, while another card with the id is here.
    bool begin(lease_t lease);
    /// What the outbox knows of it. Nothing, when it is over already.
    void name(uint64_t card, uint64_t message, uint64_t datagrams);
    /// Changes one, if it is here.
    template <typename change_t>
    std::optional<lease_t> change(uint64_t card, const change_t& change) {
        const std::lock_guard lock(mutex_);
        const auto found = leases_.find(card);
        if (found == leases_.end()) {
            return std::nullopt;
        }
        outstanding_ -= outstanding(found->second);
        change(found->second);
        outstanding_ += outstanding(found->second);
        return found->second;
    }
    /// It is here no more, and so many datagrams of it were sent. None, when it was not.
    std::optional<lease_t> end(uint64_t card, uint64_t sent = 0);

    std::optional<lease_t> find(uint64_t card) const;
    std::vector<lease_t> all() const;
    size_t size() const;
    /// Of those that may go now.
    uint64_t outstanding_datagrams() const;
    /// Datagrams that were sent in the last ten seconds.
    uint64_t pace() const;
    /// Waits until one has ended, or so long.
    void wait(std::chrono::milliseconds time) const;
    /// Nobody waits any more.
    void wake() const { changed_.notify_all(); }

  private:
    using clock_t = std::chrono::steady_clock;
    static uint64_t outstanding(const lease_t& lease) { return lease.is_held ? 0 : lease.datagrams; }

    mutable std::mutex mutex_;  // guards all below
    mutable std::condition_variable changed_;
    std::unordered_map<uint64_t, lease_t> leases_;
    uint64_t outstanding_ = 0;
    mutable std::deque<std::pair<clock_t::time_point, uint64_t>> sent_;  // datagrams, and when
    mutable uint64_t pace_ = 0;                                          // of those
};

}  // namespace fleet
