#include "relay/lease_table.h"

namespace fleet {

bool lease_table_t::begin(lease_t lease) {
    const std::lock_guard lock(mutex_);
    const auto [place, is_new] = leases_.try_emplace(lease.card, lease);
    if (!is_new && place->second.digest == lease.digest) {
        place->second.queued = std::move(lease.queued);
    }
    return is_new;
}

void lease_table_t::name(uint64_t card, uint64_t message, uint64_t datagrams) {
    static_cast<void>(change(card, [&](lease_t& lease) {
        lease.message = message;
        lease.datagrams = datagrams;
    }));
}

std::optional<lease_t> lease_table_t::end(uint64_t card, uint64_t sent) {
    const std::lock_guard lock(mutex_);
    const auto found = leases_.find(card);
    if (found == leases_.end()) {
        return std::nullopt;
    }
    std::optional<lease_t> ended(std::move(found->second));
    leases_.erase(found);
    outstanding_ -= outstanding(*ended);
    if (sent != 0) {
        sent_.emplace_back(clock_t::now(), sent);
        pace_ += sent;
    }
    changed_.notify_all();
    return ended;
}

std::optional<lease_t> lease_table_t::find(uint64_t card) const {
    const std::lock_guard lock(mutex_);
    const auto found = leases_.find(card);
    return found != leases_.end() ? std::optional(found->second) : std::nullopt;
}

std::vector<lease_t> lease_table_t::all() const {
    const std::lock_guard lock(mutex_);
    std::vector<lease_t> leases;
    leases.reserve(leases_.size());
    for (const auto& [card, lease] : leases_) {
        leases.push_back(lease);
    }
    return leases;
}

size_t lease_table_t::size() const {
    const std::lock_guard lock(mutex_);
    return leases_.size();
}

uint64_t lease_table_t::outstanding_datagrams() const {
    const std::lock_guard lock(mutex_);
    return outstanding_;
}

uint64_t lease_table_t::pace() const {
    constexpr std::chrono::seconds window{10};
    const std::lock_guard lock(mutex_);
    const auto since = clock_t::now() - window;
    while (!sent_.empty() && sent_.front().first < since) {
        pace_ -= sent_.front().second;
        sent_.pop_front();
    }
    return pace_;
}

void lease_table_t::wait(std::chrono::milliseconds time) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, time);
}

}  // namespace fleet
