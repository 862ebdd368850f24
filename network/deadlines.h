/// When which of many has something to do: finding the first, and moving one, costs the logarithm of their number.
/// Those of the same time come in their order. Not thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace network {

template <typename key_t, typename order_t = std::less<key_t>>
class deadlines_t {
  public:
    /// In place of the one before; none takes it out.
    void set(const key_t& key, std::optional<uint64_t> at) {
        const auto known = of_.find(key);
        if (known != of_.end()) {
            queue_.erase({known->second, key});
            of_.erase(known);
        }
        if (at) {
            of_.emplace(key, *at);
            queue_.emplace(*at, key);
        }
    }
    std::optional<uint64_t> first() const {
        return queue_.empty() ? std::nullopt : std::optional(queue_.begin()->first);
    }
    /// Takes out those that have come by now.
    std::vector<key_t> take_due(uint64_t now) {
        std::vector<key_t> due;
        while (!queue_.empty() && queue_.begin()->first <= now) {
            due.push_back(queue_.begin()->second);
            set(due.back(), std::nullopt);
        }
        return due;
    }

  private:
    struct earlier_t {
        bool operator()(const std::pair<uint64_t, key_t>& a, const std::pair<uint64_t, key_t>& b) const {
            return a.first != b.first ? a.first < b.first : order_t()(a.second, b.second);
        }
    };
    std::set<std::pair<uint64_t, key_t>, earlier_t> queue_;
    std::map<key_t, uint64_t, order_t> of_;
};

}  // namespace network
