/// What `zpd network` does with --fault-plan and --chaos.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "network/network.h"

/// From now on the network carries out the plan, and what follows from the seed, if there is one, for the phones of
/// these numbers: a fault that one of them has already is left alone. Prints each order when it has been carried out,
/// as a line of a plan.
void follow_faults(network::network_t& network, const std::vector<std::string>& numbers,
                   std::vector<network::planned_order_t> plan, std::optional<uint64_t> seed);
