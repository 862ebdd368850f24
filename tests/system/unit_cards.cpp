// What the commands make of text: names on cards, phone numbers, stored files.
#include <gtest/gtest.h>

#include "cli/inbox_folder.h"
#include "cli/phone_number.h"
#include "cli/vcard.h"

namespace {

TEST(text, a_card_name_is_read_as_phones_write_it) {
    const std::pair<std::string, std::string> cases[] = {
        {"BEGIN:VCARD\r\nFN:Ada Example\r\nEND:VCARD\r\n", "Ada Example"},
        {"BEGIN:VCARD\nfn:Ada\nEND:VCARD", "Ada"},
        {"FN:Ada Exam\r\n ple of a fold\r\n\tand a tab\r\n", "Ada Example of a foldand a tab"},
        // vCard 2.1: quoted-printable with a soft line break.
        {"FN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:Zo=C3=AB=\r\n Ex=61mple\r\n", "Zo\xC3\xAB Example"},
        {"FN;QUOTED-PRINTABLE:100% = a=4\r\n", "100% = a=4"},
        {"item1.FN:Grouped\r\n", "Grouped"},
        {"FN;X-NOTE=\"a:b\":Quoted parameter\r\n", "Quoted parameter"},
        {"FN:Example\\, Ada\\nof \\\\\r\n", "Example, Ada of \\"},
        {"N:Example;Ada;M.;Dr.\r\n", "Ada Example"},
        {"N:Example\r\nFN:Ada\r\n", "Ada"},
        {"N:;Ada\r\nFN:\r\n", "Ada"},
        {"NOTE:x\r\n FN:inside a note\r\nTEL:1\r\n", ""},
        {"FN;ENCODING=QUOTED-PRINTABLE:a=", "a="},
        {"FN", ""},
        {"", ""},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(card_name(input), expected) << input;
    }
}

TEST(text, a_phone_number_is_digits_with_an_optional_plus) {
    for (const char* good : {"1", "+12025550100", "12345678901234567890", "+12345678901234567890"}) {
        EXPECT_EQ(check_number(good), "") << good;
    }
    for (const std::string& bad : {std::string(), std::string("+"), std::string("letters"), std::string("12+3"),
                                   std::string("+49 171"), std::string(21, '1'), std::string(300, 'x')}) {
        EXPECT_NE(check_number(bad), "") << bad;
        EXPECT_LT(check_number(bad).size(), 150U) << bad;
    }
}

TEST(text, a_phone_number_is_read_as_people_write_it) {
    const std::pair<std::string, std::string> cases[] = {
        {"+1 (202) 555-0199", "+12025550199"},    {"tel:+1-202-555-0199", "+12025550199"},
        {"0049\t171/555.01", "004917155501"},     {"(+49)\u00A0171\u2011555\u2013 01", "+4917155501"},
        {"\u202A+49 171 555\u202C", "+49171555"},
    };
    for (auto [typed, number] : cases) {
        EXPECT_EQ(read_number(typed), "");
        EXPECT_EQ(typed, number);
    }
    for (const std::string bad : {"", "- ()", "+", "tel:", "1+2", "+44 (0)20 7946", "555-ANN", "tel:+1;ext=5", "1\r\n2",
                                  "12345 67890 12345 67890 1"}) {
        std::string typed = bad;
        EXPECT_NE(read_number(typed), "") << bad;
        EXPECT_EQ(typed, bad);
    }
}

TEST(text, a_stored_card_is_its_first_line_and_the_octets_after_it) {
    const auto card = parse_stored_card("name", std::string("1700000000:+123\nA\nB\r\n\0C", 23));
    ASSERT_TRUE(card);
    EXPECT_EQ(card->time, 1700000000U);
    EXPECT_EQ(card->sender, "+123");
    EXPECT_EQ(card->octets, std::string("A\nB\r\n\0C", 7));
    EXPECT_EQ(parse_stored_card("name", "1::\n")->sender, ":");
    for (const char* bad : {"", "1", "1:", "1:+2", "x:+2\nA", "1\n:A", ":1\nA", "99999999999999999999:1\nA"}) {
        EXPECT_FALSE(parse_stored_card("name", bad)) << bad;
    }
}

}  // namespace
