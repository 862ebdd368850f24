// What the modems of the network say in words, the radio reads.
#include "air/result_codes.h"

#include <gtest/gtest.h>

#include "network/result_codes.h"
#include "radio/result_codes.h"

namespace network {
namespace {

void expect_that_all_are_read(at_result_t::kind_t kind, radio::final_result_t::kind_t read_as,
                              std::span<const air::result_code_t> table) {
    for (const auto& [number, words] : table) {
        const std::string line = result_text({kind, number}, error_form_t::verbose, false);
        EXPECT_NE(line.find(words), std::string::npos) << line;
        // TP-FCS has the words of an earlier cause once more.
        const int expected = number == 211 ? 22 : static_cast<int>(number);
        EXPECT_EQ(radio::final_result(line), (radio::final_result_t{read_as, expected})) << line;
    }
}

TEST(result_codes, of_the_network_are_read_by_the_radio) {
    using read_t = radio::final_result_t::kind_t;
    expect_that_all_are_read(at_result_t::kind_t::cms_error, read_t::cms_error, air::cms_errors());
    expect_that_all_are_read(at_result_t::kind_t::cme_error, read_t::cme_error, air::cme_errors());
    EXPECT_EQ(result_text(cms_error(513), error_form_t::verbose, false), "+CMS ERROR: 513");
}

}  // namespace
}  // namespace network
