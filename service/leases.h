/// Until when the leases of the outbox's messages hold. Only in memory: no lease outlives the service. Times are of
/// base::tick64, which stands still while the machine sleeps. Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

class leases_t {
  public:
    /// From now on it holds until then.
    void set(int64_t id, uint64_t end);
    void remove(int64_t id);
    /// It has one, which holds.
    [[nodiscard]] bool holds(int64_t id, uint64_t now) const;
    /// It has one, which holds no more.
    [[nodiscard]] bool has_ended(int64_t id, uint64_t now) const;
    [[nodiscard]] size_t count() const { return ends_.size(); }
    /// Those that hold no more, the first to end first, `most` at most.
    [[nodiscard]] std::vector<int64_t> ended(uint64_t now, size_t most) const;
    /// When the next one ends, or has ended.
    [[nodiscard]] std::optional<uint64_t> next_end() const;

  private:
    std::map<int64_t, uint64_t> ends_;
    std::set<std::pair<uint64_t, int64_t>> order_;  // the same by their ends
};
