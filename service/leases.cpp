#include "service/leases.h"

void leases_t::set(int64_t id, uint64_t end) {
    remove(id);
    ends_[id] = end;
    order_.emplace(end, id);
}

void leases_t::remove(int64_t id) {
    if (const auto known = ends_.find(id); known != ends_.end()) {
        order_.erase({known->second, id});
        ends_.erase(known);
    }
}

bool leases_t::holds(int64_t id, uint64_t now) const {
    const auto known = ends_.find(id);
    return known != ends_.end() && known->second > now;
}

bool leases_t::has_ended(int64_t id, uint64_t now) const {
    const auto known = ends_.find(id);
    return known != ends_.end() && known->second <= now;
}

std::vector<int64_t> leases_t::ended(uint64_t now, size_t most) const {
    std::vector<int64_t> ids;
    for (auto one = order_.begin(); one != order_.end() && one->first <= now && ids.size() < most; ++one) {
        ids.push_back(one->second);
    }
    return ids;
}

std::optional<uint64_t> leases_t::next_end() const {
    return order_.empty() ? std::nullopt : std::optional(order_.begin()->first);
}
