/// Faults on a timetable, as people write it. A line is
///
///   TIME NUMBER FAULT[=VALUE] ...
///   1m30s +12025550100 lose-results=2 'restart=2000:+CPIN: SIM PIN'
///
/// TIME counts from when the plan begins to be followed, in any unit of base/duration.h; "*" stands for all phones; the
/// faults are those of fault_table.h. A blank within a word stands in 'quotes' or behind a \. A # that begins a word
/// begins a comment. The lines stand in any order; those of one time are carried out in the order that they stand in.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace network {

struct planned_order_t {
    uint64_t at = 0;     // milliseconds since the plan began
    std::string number;  // of a phone, or "*"
    std::vector<std::string> faults;

    bool operator==(const planned_order_t&) const = default;
};

inline constexpr std::string_view all_phones = "*";

/// The order as a line of a plan.
std::string to_text(const planned_order_t& order);

/// The plan in the file, in the order of its times. Every line has been looked at: at the first that is wrong, that has
/// a phone that is none of `numbers` for one, `error` tells FILE:LINE, what is wrong, and the line; so it does when the
/// file cannot be read.
std::vector<planned_order_t> read_fault_plan(const std::filesystem::path& file, const std::vector<std::string>& numbers,
                                             std::string* error);

}  // namespace network
