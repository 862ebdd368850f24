/// Faults by chance, without end: each phone is struck now and then, for some seconds, by one fault at a time, and that
/// very fault is undone again. They are such that messages come late, twice or out of order, or are refused for a
/// while; none loses what a host lets the modem store, or acknowledges.
///
/// What a phone gets depends on the seed, its number and what it is spared, and on nothing else: it is the same on
/// every machine.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "network/fault_plan.h"

namespace network {

/// Of each phone, by its number, the names of the faults that are somebody else's: chance leaves these as they are.
using spared_faults_t = std::map<std::string, std::set<std::string, std::less<>>>;

struct chaos_fault_t;

class chaos_t {
  public:
    chaos_t(uint64_t seed, const std::vector<std::string>& numbers, const spared_faults_t& spared = {});

    /// The next order, none sooner than the one before; none when there is no phone that may be struck.
    std::optional<planned_order_t> next();

  private:
    struct victim_t {
        std::string number;
        std::mt19937_64 chance;
        std::vector<const chaos_fault_t*> faults;  // that may strike it
        planned_order_t order;                     // what comes next for it
        std::string undoing;                       // what comes after that; empty: it ends by itself
        uint64_t until = 0;                        // when it does, in milliseconds since the beginning
        uint64_t due() const { return order.at; }
    };
    static void strike(victim_t& victim);

    std::vector<victim_t> victims_;
};

}  // namespace network
