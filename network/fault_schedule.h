/// Carries out faults when their time has come, of any number of sources: plans (fault_plan.h), chance (chaos.h). Of
/// the network's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "network/fault_plan.h"

namespace network {

/// Gives the orders one after the other, none sooner than the one before; then none any more, if it ends.
using fault_source_t = std::function<std::optional<planned_order_t>()>;

/// The source of a plan that has been read.
fault_source_t orders_of(std::vector<planned_order_t> plan);

class fault_schedule_t {
  public:
    using carry_out_t = std::function<void(const planned_order_t&)>;

    /// From now on, with the source's times counted from now.
    void follow(fault_source_t source, carry_out_t carry_out);
    /// When, on base::tick64, pass_deadline has something to do.
    std::optional<uint64_t> deadline() const;
    /// Has carried out what is due.
    void pass_deadline();

  private:
    struct followed_t {
        fault_source_t source;
        carry_out_t carry_out;
        uint64_t begun_at;                    // on base::tick64
        std::optional<planned_order_t> next;  // without one it has ended
        uint64_t due() const { return next ? begun_at + next->at : UINT64_MAX; }
    };
    std::vector<followed_t> followed_;
};

}  // namespace network
