// SMS-DELIVER-REPORT, 3GPP TS 23.040 9.2.2.1a.
#include "air/deliver_report.h"

#include <gtest/gtest.h>

#include "base/hex.h"

namespace air {
namespace {

TEST(deliver_report, is_one_whole_and_without_surplus) {
    struct row_t {
        std::string hex;
        bool acknowledges;
        bool refuses;
    };
    const row_t rows[] = {
        {"0000", true, false},                   // no optional field
        {"00D300", false, true},                 // memory capacity exceeded; D3 as indicators wants more of them
        {"007F00", false, false},                // no cause, and surplus
        {"", false, false},                      //
        {"00", false, false},                    //
        {"0100", false, false},                  // a SUBMIT's type
        {"00000A", false, false},                // surplus
        {"000100", true, false},                 // TP-PID
        {"000300F6", true, false},               // and TP-DCS
        {"0001", false, false},                  // which is missing
        {"00070004027F00", true, false},         // user data: two octets
        {"0007000403AABB", false, false},        // announced one more
        {"000401C832", false, false},            // one septet is one octet, with TP-DCS left away
        {"00040148", true, false},               //
        {"40070004050503010203", false, false},  // a header longer than the user data
        {"400700040504700200AA", true, false},   //
        {"008000", true, true},                  // indicators that go on; or a cause and none of them
        {"0080", false, false},                  //
        {"00FF07000401AA", true, true},          // the same, with everything
        {"3C00", true, false},                   // bits without a meaning
    };
    for (const row_t& row : rows) {
        const octets_t octets = base::from_hex(row.hex).value_or(octets_t{});
        EXPECT_EQ(is_deliver_report(octets, deliver_report_t::of_acknowledgement), row.acknowledges) << row.hex;
        EXPECT_EQ(is_deliver_report(octets, deliver_report_t::of_error), row.refuses) << row.hex;
    }
}

}  // namespace
}  // namespace air
