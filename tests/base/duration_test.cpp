#include "base/duration.h"

#include <gtest/gtest.h>

namespace base {
namespace {

TEST(duration, takes_units_from_the_largest_to_the_smallest) {
    struct row_t {
        const char* text;
        std::optional<uint64_t> milliseconds;
        std::optional<uint64_t> seconds;
    };
    constexpr auto none = std::nullopt;
    for (const row_t& row : {row_t{"90s", 90'000, 90},
                             {"1h30m", 5'400'000, 5'400},
                             {"2d12h1m1s1ms", 216'061'001, none},
                             {"1500ms", 1'500, none},
                             {"0s", 0, none},
                             {"3650d", 315'360'000'000, 315'360'000},
                             {"3650d1ms", none, none},
                             {"99999999999999999999s", none, none},
                             {"", none, none},
                             {"90", none, none},
                             {"s", none, none},
                             {"-1s", none, none},
                             {"+1s", none, none},
                             {"1 s", none, none},
                             {"1s30m", none, none},
                             {"1s1s", none, none},
                             {"1s1", none, none},
                             {"1w", none, none}}) {
        EXPECT_EQ(read_milliseconds(row.text), row.milliseconds) << row.text;
        EXPECT_EQ(read_duration(row.text), row.seconds) << row.text;
    }
}

TEST(duration, is_told_no_more_exactly_than_people_want_it) {
    const std::pair<uint64_t, const char*> rows[] = {
        {0, "0 s"},        {119, "119 s"},    {120, "2 min"},        {3 * 3600, "3 h"},
        {7199, "119 min"}, {172'799, "47 h"}, {4 * 86'400, "4 days"}};
    for (const auto& [seconds, words] : rows) {
        EXPECT_EQ(duration_words(seconds), words);
    }
}

}  // namespace
}  // namespace base
