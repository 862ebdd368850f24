// What the commands make of text: names on cards, text for a terminal, phone numbers, stored files, packets.
#include <gtest/gtest.h>

#include "base/safe_text.h"
#include "cli/inbox_folder.h"
#include "cli/phone_number.h"
#include "cli/vcard.h"
#include "device/device_socket.h"
#include "device/packet.h"

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

TEST(text, escaping_keeps_text_and_shows_what_would_act_on_a_terminal) {
    const std::pair<std::string, std::string> cases[] = {
        {"Zo\xC3\xAB \xF0\x9F\x8C\xB3", "Zo\xC3\xAB \xF0\x9F\x8C\xB3"},
        {"\x1B[31mred\x07", "\\x1B[31mred\\x07"},
        {std::string("a\0b\x7F", 4), "a\\x00b\\x7F"},
        {"\xC2\x9B"
         "31m",
         "\\u{009B}31m"},  // a control sequence introducer of one character
        {std::string("\xE2\x80").append("\xAE") + "fcv", "\\u{202E}fcv"},  // right-to-left override
        {"\xC0\xAF \xED\xA0\x80", "\\xC0\\xAF \\xED\\xA0\\x80"},           // overlong, surrogate
        {"cut \xE2\x82", "cut \\xE2\\x82"},
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},  // past U+10FFFF
        {"a\r\nb", "a\\x0D\\x0Ab"},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(base::escaped(input), expected);
    }
    EXPECT_EQ(base::escaped_lines("a\r\nb\tc\rd\n"), "a\nb\tc\\x0Dd\n");
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

TEST(text, packets_come_apart_as_they_were_put_together_and_only_then) {
    using namespace device;
    const octets_t input{1, 2, 3};
    const octets_t packet = encode(request_t{0x02000004, 7, input});
    EXPECT_EQ(packet, (octets_t{4, 0, 0, 2, 7, 0, 0, 0, 1, 2, 3}));
    const auto request = decode_request(packet);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->code, 0x02000004U);
    EXPECT_EQ(request->output_capacity, 7U);
    EXPECT_TRUE(std::ranges::equal(request->input, input));
    EXPECT_FALSE(decode_request(octets_view_t(packet).first(7)));
    EXPECT_TRUE(decode_request(octets_t(request_header + max_input)));
    EXPECT_FALSE(decode_request(octets_t(request_header + max_input + 1)));

    const octets_t reply = encode(reply_t{false, 4319, {0xFF}});
    EXPECT_EQ(decode_reply(reply)->last_error, 4319U);
    EXPECT_EQ(decode_reply(reply)->output, octets_t{0xFF});
    EXPECT_FALSE(decode_reply(octets_view_t(reply).first(reply.size() - 1)));
    EXPECT_FALSE(decode_reply({}));
}

TEST(text, values_are_read_within_their_buffer) {
    using namespace device;
    const octets_t octets = writer_t().octet(9).u32(0xFFFFFFF0).octet(1).octets();
    reader_t reader(octets);
    EXPECT_EQ(reader.octet(), 9);
    EXPECT_FALSE(reader.string()) << "a count past the end";
    EXPECT_TRUE(reader.at_end()) << "nothing is left after a failed read";
    EXPECT_FALSE(reader.octet());
    EXPECT_EQ(writer_t().string16(u"\u00EB").octets(), (octets_t{2, 0, 0, 0, 0xEB, 0}));
}

}  // namespace
