#include "network/chaos.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "network/service_centre.h"

namespace network {

struct chaos_fault_t {
    std::string_view name;
    std::string_view values[3];  // one by chance; {} is the time that it lasts, in milliseconds
    std::string_view undone;     // the value that undoes it; none when it ends by itself
};

namespace {

constexpr chaos_fault_t chaos_faults[] = {
    {"refuse", {"38x1", "41x2", "42x3"}, "38x0"},
    {"lose-results", {"1", "1", "2"}, "0"},
    {"late-results", {"500", "2000", "8000"}, "0"},
    {"late-prompt", {"200", "1000", "5000"}, "0"},
    {"late-answers", {"100", "500", "2000"}, "0"},
    {"delay", {"1000", "5000", "20000"}, "0"},
    {"duplicate", {"on", "on", "on"}, "off"},
    {"reorder", {"2", "3", "5"}, "0"},
    {"full", {"on", "on", "on"}, "off"},
    {"registration", {"searching", "denied", "none"}, "home"},
    {"hang-up", {"{}", "{}", "{}"}, ""},
    {"restart", {"{}", "{}:RDY", "{}:^SYSSTART"}, ""},
    {"silent", {"on", "on", "on"}, "off"},
    {"single-octets", {"on", "on", "on"}, "off"},
    {"chatter", {"^RSSI: 21", "RING", "+CREG: 1"}, "off"},
    {"sim-busy", {"{}", "{}:314", "{}:515"}, "0"},
};

/// The standard library's distributions differ from one library to the next; the engine does not.
uint64_t one_of(uint64_t count, std::mt19937_64& chance) {
    return chance() % count;
}

/// Milliseconds, of whole seconds.
uint64_t time_between(uint64_t shortest, uint64_t longest, std::mt19937_64& chance) {
    return (shortest + one_of(longest - shortest + 1, chance)) * 1000;
}

std::mt19937_64 chance_of(uint64_t seed, const std::string& number) {
    const std::string digits = digits_of(number);
    std::vector<uint32_t> beginning(digits.begin(), digits.end());
    beginning.push_back(static_cast<uint32_t>(seed));
    beginning.push_back(static_cast<uint32_t>(seed >> 32));
    std::seed_seq sequence(beginning.begin(), beginning.end());
    return std::mt19937_64(sequence);
}

}  // namespace

chaos_t::chaos_t(uint64_t seed, const std::vector<std::string>& numbers, const spared_faults_t& spared) {
    for (const std::string& number : numbers) {
        const auto kept = spared.find(number);
        victim_t victim{.number = number, .chance = chance_of(seed, number), .faults = {}, .order = {}, .undoing = {}};
        for (const chaos_fault_t& fault : chaos_faults) {
            if (kept == spared.end() || !kept->second.contains(fault.name)) {
                victim.faults.push_back(&fault);
            }
        }
        if (!victim.faults.empty()) {
            strike(victim);
            victims_.push_back(std::move(victim));
        }
    }
}

void chaos_t::strike(victim_t& victim) {
    const uint64_t at = victim.until + time_between(5, 60, victim.chance);
    const uint64_t lasting = time_between(1, 15, victim.chance);
    const chaos_fault_t& fault = *victim.faults[one_of(victim.faults.size(), victim.chance)];
    const std::string_view value = fault.values[one_of(std::size(fault.values), victim.chance)];
    victim.order = {at, victim.number, {fmt::format("{}={}", fault.name, fmt::format(fmt::runtime(value), lasting))}};
    victim.undoing = fault.undone.empty() ? "" : fmt::format("{}={}", fault.name, fault.undone);
    victim.until = at + lasting;
}

std::optional<planned_order_t> chaos_t::next() {
    if (victims_.empty()) {
        return std::nullopt;
    }
    victim_t& victim = *std::ranges::min_element(victims_, {}, &victim_t::due);
    planned_order_t order = victim.order;
    if (victim.undoing.empty()) {
        strike(victim);
    } else {
        victim.order = {victim.until, victim.number, {std::exchange(victim.undoing, {})}};
    }
    return order;
}

}  // namespace network
