// The references that submissions go out under.
#include "radio/open_submissions.h"

#include <gtest/gtest.h>

namespace {

TEST(open_submissions, references_run_from_1_to_255_and_begin_again) {
    radio::open_submissions_t open;
    const radio::submission_t message{air::submit_t()};
    uint16_t last = 0;
    for (int i = 0; i < 600; ++i) {
        const radio::open_submission_t& one = open.begin(message);
        EXPECT_EQ(&open.begin(message), &one) << "the same message";
        if (i > 0) {
            EXPECT_EQ(one.reference, last == 255 ? 1 : last + 1);
        }
        last = one.reference;
        open.close(one);
    }
}

}  // namespace
