#include "radio/limits.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace {

using testing::HasSubstr;

TEST(limits, the_document_shows_the_table) {
    std::ifstream file(ZPD_SOURCE "/docs/radio.md");
    const std::string document(std::istreambuf_iterator<char>(file), {});
    for (const radio::limit_row_t& row : radio::limits()) {
        const std::string range = row.settable() ? fmt::format("{} to {}", row.least, row.most) : "fixed";
        const std::string shown =
            fmt::format("\n| {} | {} {} | {} | {} |\n", row.name, row.initial, row.unit, range, row.reason);
        EXPECT_NE(document.find(shown), std::string::npos) << shown;
    }
}

TEST(limits, what_may_be_set) {
    EXPECT_EQ(radio::set_limit("submission", "120"), "");
    EXPECT_EQ(radio::milliseconds(radio::limit_t::submission), 120'000U);
    const std::pair<const char*, const char*> refused[] = {
        {"submission", "9"}, {"submission", "3601"}, {"submission", "60s"}, {"submission", ""},
        {"prompt", "-1"},    {"settling", "2"},      {"prompts", "20"},
    };
    for (const auto& [name, value] : refused) {
        EXPECT_THAT(radio::set_limit(name, value), HasSubstr(name)) << value;
    }
    EXPECT_EQ(radio::milliseconds(radio::limit_t::submission), 120'000U);
    radio::reset_limits();
    EXPECT_EQ(radio::milliseconds(radio::limit_t::submission), 180'000U);
}

}  // namespace
