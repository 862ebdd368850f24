/// A phone of the network as it is at a moment, for people and scripts to look at. Plain values.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "network/message_memories.h"

namespace network {

struct phone_state_t {
    std::string number;
    std::string_view technology;    // as it is written behind a number, technology_named
    std::string tty;                // empty while it is hung up
    std::string listens_at;         // "127.0.0.1:4000"; empty when it does not
    std::string_view registration;  // as the fault of that name has it
    std::vector<message_memories_t::level_t> memories;
    size_t waiting = 0;               // messages that the service centre keeps for it
    std::vector<std::string> faults;  // in force, as they are ordered
};

class phone_t;
/// On the network's thread.
phone_state_t state_of(const phone_t& phone);

}  // namespace network
