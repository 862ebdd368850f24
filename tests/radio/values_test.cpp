// Lines of modems as values: a row for each odd one.
#include <gtest/gtest.h>

#include "radio/at_values.h"
#include "radio/warning.h"

namespace {

using namespace radio;
using kind_t = final_result_t::kind_t;

TEST(values, final_results) {
    const std::pair<const char*, std::optional<final_result_t>> rows[] = {
        {"+CMS ERROR:38", {{kind_t::cms_error, 38}}},  // no blank
        {"+CMS ERROR: SIM busy", {{kind_t::cms_error, 314}}},
        {"+CMS ERROR: (U)SIM PIN required", {{kind_t::cms_error, 311}}},
        {"+CMS ERROR: sm rejected - duplicate sm", {{kind_t::cms_error, 197}}},
        {"+CMS ERROR: PH-USIM PIN REQUIRED", {{kind_t::cms_error, 312}}},
        {"+CMS ERROR: Out of credit\x9B", {{kind_t::cms_error, 500, "Out of credit\x9B"}}},  // of no standard
        {"+CMS ERROR: -1", {{kind_t::cms_error, 500, "-1"}}},
        {"+CMS ERROR: ", {{kind_t::cms_error, 500}}},
        {"+CME ERROR: 14", {{kind_t::cme_error, 14}}},
        {"+CME ERROR: SIM busy", {{kind_t::cme_error, 14}}},
        {"+CME ERROR: Congestion", {{kind_t::cme_error, 100, "Congestion"}}},  // not of this family
        {"+CMS ERROR: Please wait, init or command", {{kind_t::cms_error, 515}}},
        {"COMMAND NOT SUPPORT", {{kind_t::error, 0}}},
        {"OKAY", std::nullopt},
        {"+CMTI: \"SM\",1", std::nullopt},
    };
    for (const auto& [line, result] : rows) {
        EXPECT_EQ(final_result(line), result) << line;
    }
}

TEST(values, final_results_for_people) {
    const std::pair<const char*, const char*> rows[] = {
        {"+CMS ERROR: 38", "Network out of order (+CMS ERROR: 38)"},
        {"+CME ERROR: SIM failure",
         "SIM failure (+CME ERROR: 13): check that a SIM is in the modem, the right way round"},
        {"+CMS ERROR: 513", "unknown to the standard (+CMS ERROR: 513): the modem's manual has the code"},
        {"+CMS ERROR: Out of credit\x9B", "Out of credit\\x9B (+CMS ERROR: unknown)"},
        {"ERROR", "refused without a reason"},
    };
    for (const auto& [line, text] : rows) {
        EXPECT_EQ(described(*final_result(line)), text);
    }
}

TEST(values, registrations) {
    const struct {
        const char* line;
        std::optional<registration_t> registration;
        bool registered;
    } rows[] = {
        {"+CREG: 0,1", {{1, {}}}, true},
        {"+CREG: 2,5,\"00C3\",\"0A12B3C4\",7", {{5, 7}}, true},
        {"+CREG: 2,1,00C3,A12B,2", {{1, 2}}, true},  // no quotation marks in the reply
        {"+CREG: 1,00C3,A12B,2", {{1, 2}}, true},    // by itself, no quotation marks
        {"+CREG:2", {{2, {}}}, false},
        {"+CREG: 8", {{8, {}}}, false},  // emergency calls only
        {"+CEREG: 2,4", {{4, {}}}, false},
        {"+CEREG: 6", {{6, {}}}, true},  // short messages only
        {"+CREG: ", std::nullopt, false},
        {"+CREG: -1", std::nullopt, false},
        {"+CREG: home", std::nullopt, false},
    };
    for (const auto& row : rows) {
        const std::optional<registration_t> registration = radio::registration(row.line);
        EXPECT_EQ(registration, row.registration) << row.line;
        EXPECT_EQ(registration && registration->registered(), row.registered) << row.line;
    }
    EXPECT_EQ(operator_access("+COPS: 0,0,\"A, B\",2"), 2);  // a comma in the name
    EXPECT_EQ(operator_access("+COPS: 0"), std::nullopt);
    EXPECT_EQ(system_type_of_access(3), RIL_SYSTEMTYPE_GSM | RIL_SYSTEMTYPE_GPRS | RIL_SYSTEMTYPE_EDGE);
    for (const int later : {7, 9, 10, 11, 12, 13}) {  // E-UTRAN, NR and what lies between them
        EXPECT_EQ(system_type_of_access(later), RIL_SYSTEMTYPE_UMTS);
    }
}

TEST(values, messages) {
    EXPECT_EQ(new_message("+CMTI:ME,0"), (location_t{"ME", 0}));
    for (const char* odd : {"+CMTI: \"SM\",-1", "+CMTI: \"SM\"", "+CMTI: ", "+CMTI: ,5", "+CMTI: \"S\x01M\",5",
                            "+CMTI: \"SM\",99999999999"}) {
        EXPECT_EQ(new_message(odd), std::nullopt) << odd;
    }
    EXPECT_EQ(read_message("+CMGR: 1,\"Ann, B\",24"), (stored_message_t{0, true, 24}));
    EXPECT_EQ(read_message("+CMGR: 3,24"), (stored_message_t{0, false, 24}));  // no <alpha>, to be sent
    EXPECT_EQ(read_message("+CMGR: \"REC READ\",\"+49170\""), std::nullopt);   // text mode
    EXPECT_EQ(listed_message("+CMGL: 12,1"), std::nullopt);
    EXPECT_EQ(delivered_length("+CMT: 24"), 24U);
    EXPECT_EQ(delivered_length("+CMT: ,"), std::nullopt);
    EXPECT_EQ(message_reference("+CMGS: 255,\"00\""), 255);
    EXPECT_EQ(message_reference("+CMGS: 65536"), std::nullopt);
}

TEST(values, tpdus) {
    const air::octets_t behind = {0x02, 0xAA, 0xBB};
    const air::octets_t all = {0x00, 0x02, 0xAA, 0xBB};
    const struct {
        const char* line;
        size_t length;
        std::vector<air::octets_t> tpdus;
    } rows[] = {
        {"02aabb", 3, {behind}},                  // no service centre address
        {"07912143658709F102AABB", 3, {behind}},  //
        {"07912143658709F102AABB", 2, {behind}},  // a length that is one off
        {"07912143658709F102AABB", 4, {behind}},  //
        {"07912143658709F102AABB", 11, {{0x07, 0x91, 0x21, 0x43, 0x65, 0x87, 0x09, 0xF1, 0x02, 0xAA, 0xBB}, behind}},
        {"0002AABB", 3, {all, behind}},  // either
        {"0002AABB", 1, {}},             // octets were lost, or added
        {"0002AABB", 6, {}},
        {"0002AABB5", 3, {}},
        {"", 2, {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(tpdus_of_line(row.line, row.length), row.tpdus) << row.line << ", " << row.length;
    }
}

TEST(values, memories) {
    using names_t = std::vector<std::string>;
    EXPECT_EQ(readable_memories("+CPMS: (\"ME\",\"SM\"),(\"SM\"),(\"MT\")"), (names_t{"ME", "SM"}));
    EXPECT_EQ(readable_memories("+CPMS: \"SM\""), (names_t{"SM"}));
    EXPECT_EQ(readable_memories("+CPMS: ()"), names_t{});
    EXPECT_EQ(receiving_memory("+CPMS: \"ME\",0,25,\"ME\",0,25,\"SM\",3,20"), "SM");
    EXPECT_EQ(receiving_memory("+CPMS: \"ME\",0,25"), "");
    EXPECT_EQ(memory_level("+CPMS: 19,20,0,20,0,20")->used, 19);
    EXPECT_FALSE(memory_level("OK"));
}

TEST(values, announcements) {
    using enum announcement_t::way_t;
    const std::pair<const char*, announcement_t> rows[] = {
        {"+CNMI: (0,1,2),(0,1,2,3),(0,2),(0,1),(1)", {stored, "2,1,0,0,1"}},
        {"+CNMI: (1),(1)", {stored, "1,1"}},
        {"+CNMI: 3,1,0", {stored, "3,1,0"}},
        {"+CNMI: (2),(0,2,3),(0,2),(0,2),(0)", {direct, "2,2,0,0,0"}},
        {"+CNMI: (0-2),(0),(0)", {none, "2,0,0"}},
        {"+CNMI: (0-2),(0,1),(1),(0)", {stored, "2,1"}},  // no choice for the third: left away
        {"+CNMI: (", {none, ""}},
        {"", {none, ""}},
    };
    for (const auto& [offered, choice] : rows) {
        EXPECT_EQ(choose_announcement(offered_numbers(offered), true), choice) << offered;
    }
    EXPECT_EQ(offered_numbers("+CSMS: (0-999999999)")[0].size(), 0U);
}

TEST(values, text_never_becomes_a_command) {
    EXPECT_EQ(command_line("AT+CMGD=1"), "AT+CMGD=1");
    for (const char* text : {"AT\rATD1", "AT\n", "A\x1A", "\x1B", "\x7F", "é"}) {
        EXPECT_FALSE(command_line(text));
        EXPECT_FALSE(quoted_text(text));
    }
    EXPECT_EQ(quoted_text("SM"), "\"SM\"");
    EXPECT_FALSE(quoted_text("S\";+CFUN=0;\""));
    EXPECT_EQ(shown("a\r\x9B"), "a\\x0D\\x9B");
    for (int octet = 0; octet < 256; ++octet) {
        const std::string text = {'1', static_cast<char>(octet)};
        const bool clean = octet >= ' ' && octet <= '~';
        EXPECT_EQ(command_line(text), clean ? std::optional(text) : std::nullopt);
        EXPECT_EQ(quoted_text(text), clean && octet != '"' ? std::optional('"' + text + '"') : std::nullopt);
        EXPECT_EQ(announcement_of(text).has_value(), octet >= '0' && octet <= '9') << octet;
    }
    EXPECT_TRUE(announcement_of("2,1"));
}

}  // namespace
