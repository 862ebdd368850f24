// What the commands make of text: names on cards, phone numbers, stored files.
#include <gtest/gtest.h>

#include "cli/phone_number.h"
#include "service/card_json.h"
#include "service/inbox_folder.h"
#include "service/vcard.h"

namespace {

std::string described(std::string_view octets) {
    std::string text;
    for (const contact_t& contact : contacts_of(octets)) {
        text += contact.name + "|" + contact.organisation + "|" + contact.telephone + "\n";
    }
    return text;
}

TEST(text, the_contacts_on_a_card_are_read_as_phones_write_them) {
    const std::pair<std::string, std::string> cases[] = {
        {"BEGIN:VCARD\r\nFN:Ada Example\r\nEND:VCARD\r\n", "Ada Example||\n"},
        {"BEGIN:VCARD\nfn:Ada\nEND:VCARD", "Ada||\n"},
        {"FN:Ada Exam\r\n ple of a fold\r\n\tand a tab\r\n", "Ada Example of a foldand a tab||\n"},
        // vCard 2.1: quoted-printable with a soft line break.
        {"FN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:Zo=C3=AB=\r\n Ex=61mple\r\n", "Zo\xC3\xAB Example||\n"},
        {"FN;QUOTED-PRINTABLE:100% = a=4\r\n", "100% = a=4||\n"},
        {"FN;ENCODING=QUOTED-PRINTABLE:a=", "a=||\n"},
        {"item1.FN:Grouped\r\n", "Grouped||\n"},
        {"FN;X-NOTE=\"a:b\":Quoted parameter\r\n", "Quoted parameter||\n"},
        {"FN:Example\\, Ada\\nof \\\\;;\r\n", "Example, Ada of \\;;||\n"},
        {"N:Example;Ada;M.;Dr.\r\n", "Ada Example||\n"},
        {"N:Example\r\nFN:Ada\r\n", "Ada||\n"},
        {"N:;Ada\r\nFN:\r\n", "Ada||\n"},
        {"N:A\r\nORG:Example Ltd;;Sales\r\nTEL;CELL:+1\r\nTEL:+2\r\n", "A|Example Ltd, Sales|+1\n"},
        {"FN:A\r\nTEL;VALUE=uri:Tel:+1-202\r\n", "A||+1-202\n"},
        {"begin:vcard\nFN:A\nEND:VCARD\n\nBEGIN:VCARD\nTEL:1\nEND:VCARD\n", "A||\n||1\n"},
        {"BEGIN:VCARD\nFN:A\nBEGIN:VCARD\nFN:B\n", "A||\nB||\n"},
        {"BEGIN:VCARD\nFN:A\nAGENT:\nBEGIN:VCARD\nFN:B\nEND:VCARD\nTEL:1\nEND:VCARD\nTEL:2\n", "A||1\n"},
        {"NOTE:x\r\n FN:inside a note\r\nTEL:1\r\n", ""},
        {"FN", ""},
        {"", ""},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(described(input), expected) << input;
    }
}

TEST(text, whatever_is_on_a_card_its_json_fits_an_answer) {
    std::string many;
    for (int i = 0; i < 3000; ++i) {
        many += "BEGIN:VCARD\nEND:VCARD\n";
    }
    const std::string long_one = "FN:" + std::string(499, '\x01') + "\u00e9\nORG:" + std::string(9999, '\xFF');
    for (const std::string& octets : {many, long_one}) {
        const auto json = contacts_json(octets);
        EXPECT_FALSE(json.empty());
        EXPECT_LT(json.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace).size(), 16'000U);
    }
    EXPECT_EQ(contacts_json(long_one)[0]["name"], std::string(499, '\x01') + "\u2026") << "cut between characters";
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
