#include "radio/warning.h"

#include <gmock/gmock.h>

#include "base/clock.h"

namespace {

using testing::HasSubstr;

TEST(warning, once_each_and_fifty_of_a_kind_and_then_a_count) {
    base::advance_clock(600'000);
    radio::warn_of_the_rest();  // of tests before this
    testing::internal::CaptureStderr();
    for (int i = 0; i < 5000; ++i) {
        radio::warn("a thing came " + std::to_string(i));
        radio::warn("another kind \x1b[2J");
    }
    radio::warn_of_the_rest();
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(text, '\n'), 51);
    EXPECT_THAT(text, HasSubstr("zpd radio: another kind \\x1B[2J\n")) << "no time of day but in a terminal";
    base::advance_clock(600'000);
    testing::internal::CaptureStderr();
    radio::warn_of_the_rest();
    radio::warn("a thing came again");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "zpd radio: \"a thing came ...\": 4,950 more in 10 minutes\n"
              "zpd radio: another kind \\x1B[2J ... 4,999 more in 10 minutes\n"
              "zpd radio: a thing came again\n");
}

}  // namespace
