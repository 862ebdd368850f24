#include "radio/assembly.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>
#include <utility>

namespace radio::assembly {

namespace {

using window_t = std::span<const record_t>;

bool repeats(const record_t& record, const records_t& all) {
    return std::ranges::any_of(all, [&](const record_t& other) {
        return other.gone && other.part == record.part && other.body == record.body;
    });
}

// Neighbours between which no message reaches: something has gone, or the time is too long.
bool is_border(const record_t& left, const record_t& right, const rules_t& rules) {
    return left.gone || right.gone || right.stamp - left.stamp > rules.apart;
}

// For each place the first one of the window that keeps the order of the parts, or else just the first.
std::vector<const record_t*> chosen_of(window_t window, size_t parts, bool& in_order) {
    std::vector<const record_t*> first(parts);
    for (const record_t& record : window) {
        const record_t*& chosen = first[record.part - 1U];
        const int64_t before = record.part > 1 && first[record.part - 2U] ? first[record.part - 2U]->stamp
                                                                          : std::numeric_limits<int64_t>::min();
        if (chosen == nullptr || (chosen->stamp < before && record.stamp >= before)) {
            chosen = &record;
        }
    }
    in_order = std::ranges::is_sorted(first, {}, [](const record_t* record) { return record->stamp; });
    return first;
}

bool are_close(window_t window, const rules_t& rules) {
    const auto far = [&](const record_t& left, const record_t& right) {
        return right.stamp - left.stamp > rules.close;
    };
    return std::ranges::adjacent_find(window, far) == window.end();
}

// Whether the first of them repeat what has gone, and are nearer to that than to the rest.
bool belong_to_gone(std::vector<const record_t*> chosen, const records_t& all) {
    std::ranges::sort(chosen, {}, &record_t::stamp);
    int64_t before = std::numeric_limits<int64_t>::max();
    for (const record_t& record : all) {
        if (record.gone && record.stamp <= chosen.front()->stamp) {
            before = chosen.front()->stamp - record.stamp;  // they are in order: the last is the nearest
        }
    }
    for (size_t next = 1; next < chosen.size() && repeats(*chosen[next - 1], all); ++next) {
        if (before < chosen[next]->stamp - chosen[next - 1]->stamp) {
            return true;
        }
    }
    return false;
}

// A window that has every place and no place with two bodies.
std::optional<set_t> judged(window_t window, const records_t& all, size_t parts, const rules_t& rules) {
    bool in_order = false;
    const std::vector<const record_t*> chosen = chosen_of(window, parts, in_order);
    const auto repeated = static_cast<size_t>(
        std::ranges::count_if(chosen, [&](const record_t* record) { return repeats(*record, all); }));
    const bool certain = in_order && (repeated == 0 || repeated == parts) && are_close(window, rules);
    if (!certain && belong_to_gone(chosen, all)) {
        return std::nullopt;
    }
    set_t set{{}, certain ? 0 : std::ranges::max(window, {}, &record_t::came).came + rules.wait};
    for (const record_t* record : chosen) {
        set.ids.push_back(record->id);
    }
    return set;
}

// Neighbours without a border between them, and with one body in each place.
class stretch_t {
  public:
    explicit stretch_t(const records_t& records) : records_(records) {}

    /// Takes the next record that has not gone; leaves behind what does not go with it.
    void take(size_t index, const rules_t& rules) {
        const record_t& record = records_[index];
        const bool begins_anew = index > 0 && is_border(records_[index - 1], record, rules);
        while (begin_ < index && (begins_anew || conflicts(record))) {
            leave();
        }
        begin_ = std::max(begin_, begins_anew ? index : begin_);
        end_ = index + 1;
        places_ += counts_[record.part]++ == 0 ? 1 : 0;
        last_[record.part] = &record;
    }
    /// Leaves behind what is there once more.
    void shrink() {
        while (counts_[records_[begin_].part] > 1) {
            leave();
        }
    }
    [[nodiscard]] bool conflicts(const record_t& record) const {
        return counts_[record.part] > 0 && last_[record.part]->body != record.body;
    }
    [[nodiscard]] size_t places() const { return places_; }
    [[nodiscard]] window_t window() const { return window_t(records_).subspan(begin_, end_ - begin_); }

  private:
    void leave() {
        const record_t& record = records_[begin_++];
        if (!record.gone && --counts_[record.part] == 0) {
            places_ -= 1;
        }
    }

    const records_t& records_;
    size_t begin_ = 0;
    size_t end_ = 0;
    size_t places_ = 0;
    std::array<size_t, 256> counts_{};
    std::array<const record_t*, 256> last_{};
};

}  // namespace

void insert(records_t& records, record_t record) {
    const auto order = [](const record_t& left, const record_t& right) {
        return std::pair(left.stamp, left.id) < std::pair(right.stamp, right.id);
    };
    records.insert(std::ranges::upper_bound(records, record, order), std::move(record));
}

std::optional<set_t> choose(const records_t& records, size_t parts, const rules_t& rules) {
    std::optional<set_t> best;
    stretch_t stretch(records);
    for (size_t index = 0; index < records.size(); ++index) {
        if (records[index].gone) {
            continue;
        }
        stretch.take(index, rules);
        if (stretch.places() < parts) {
            continue;
        }
        stretch.shrink();
        std::optional<set_t> set = judged(stretch.window(), records, parts, rules);
        if (set && (!best || set->due < best->due)) {
            best = std::move(set);
        }
    }
    return best;
}

std::vector<incomplete_t> incomplete(const records_t& records, const rules_t& rules) {
    std::vector<incomplete_t> all;
    std::array<const record_t*, 256> in_place{};
    for (size_t index = 0; index < records.size(); ++index) {
        const record_t& record = records[index];
        if (record.gone) {
            continue;
        }
        const record_t*& other = in_place[record.part];
        if (all.empty() || is_border(records[index - 1], record, rules) || (other && other->body != record.body)) {
            std::ranges::fill(in_place, nullptr);
            all.push_back({.ids = {}, .since = record.came, .repeats = true});
        }
        incomplete_t& last = all.back();
        last.ids.push_back(record.id);
        last.places += std::exchange(other, &record) == nullptr ? 1 : 0;
        last.since = std::min(last.since, record.came);
        last.repeats = last.repeats && repeats(record, records);
    }
    return all;
}

std::vector<const record_t*> left_over(const records_t& records) {
    std::vector<const record_t*> all;
    for (const record_t& record : records) {
        if (!record.gone && repeats(record, records)) {
            all.push_back(&record);
        }
    }
    return all;
}

}  // namespace radio::assembly
