/// The faults by name, as people and tests order them: "lose-results=2". One row a fault serves the command, its help
/// and the tests alike.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "network/faults.h"

namespace network {

class phone_t;

struct fault_t {
    std::string_view name;
    std::string_view value;  // how it is written; in brackets: may be left out; empty: there is none
    std::string_view meaning;
    struct access_t {
        /// False when the value is none of these, and then nothing is changed. On the network's thread, save without a
        /// phone: then it only looks at the value.
        bool (*set)(phone_t* phone, std::string_view value);
        /// The values that are in force now, each as `set` takes it; none when nothing is wrong. On the network's
        /// thread.
        std::vector<std::string> (*in_force)(const phone_t& phone);
    } access;
};

std::span<const fault_t> fault_table();

/// What a phone is on, by the word that people write for it: "cdma".
std::optional<access_technology_t> technology_named(std::string_view word);
std::string_view name_of(access_technology_t technology);
/// As the fault "registration" has it.
std::string_view name_of(registration_t registration);

/// Does what the order says, or without a phone only looks at it. Returns an empty text, or what is wrong with the
/// order. On the network's thread when there is a phone.
[[nodiscard]] std::string set_fault(phone_t* phone, std::string_view order);

/// The orders that would make the phone's faults what they are now, in the table's order: counts and times are those
/// that are left. None for a phone without faults. On the network's thread.
std::vector<std::string> faults_in_force(const phone_t& phone);

}  // namespace network
