#include "network/fault_schedule.h"

#include <algorithm>
#include <utility>

#include "base/clock.h"

namespace network {

fault_source_t orders_of(std::vector<planned_order_t> plan) {
    return [plan = std::move(plan), at = size_t{0}]() mutable {
        return at < plan.size() ? std::optional(plan[at++]) : std::nullopt;
    };
}

void fault_schedule_t::follow(fault_source_t source, carry_out_t carry_out) {
    std::optional<planned_order_t> first = source();
    followed_.push_back({std::move(source), std::move(carry_out), base::tick64(), std::move(first)});
}

std::optional<uint64_t> fault_schedule_t::deadline() const {
    const auto earliest = std::ranges::min_element(followed_, {}, &followed_t::due);
    return earliest != followed_.end() && earliest->next ? std::optional(earliest->due()) : std::nullopt;
}

void fault_schedule_t::pass_deadline() {
    while (deadline().value_or(UINT64_MAX) <= base::tick64()) {
        followed_t& due = *std::ranges::min_element(followed_, {}, &followed_t::due);
        due.carry_out(*due.next);
        due.next = due.source();
    }
}

}  // namespace network
