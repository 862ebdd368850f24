#include "base/text.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "base/hex.h"
#include "base/octets.h"
#include "base/safe_text.h"
#include "base/told_line.h"

using namespace std::string_literals;

TEST(text, of_well_formed_utf_8_goes_both_ways) {
    const std::pair<std::string, std::u16string> rows[] = {
        {"", u""},
        {"a\0b"s, u"a\0b"s},
        {"\x7F\xC2\x80\xDF\xBF", u"\x7F\x80\u07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\u0800\uD7FF\uE000\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
    };
    for (const auto& [narrow, wide] : rows) {
        EXPECT_EQ(base::to_utf16(narrow), wide);
        EXPECT_EQ(base::to_utf8(wide), narrow);
    }
}

TEST(text, has_u_fffd_for_what_is_ill_formed) {
    // The second to fifth rows are tables 3-8 to 3-11 of The Unicode Standard, section 3.9.
    const std::pair<std::string, std::u16string> narrow_rows[] = {
        {"\x80\xFF\x61\xC3", u"\uFFFD\uFFFDa\uFFFD"},
        {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", std::u16string(8, u'\uFFFD') + u"A"},
        {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", std::u16string(8, u'\uFFFD') + u"A"},
        {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"},
        {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", u"\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {"\xE0\xA0\0"s, u"\uFFFD\0"s},
    };
    for (const auto& [narrow, wide] : narrow_rows) {
        EXPECT_EQ(base::to_utf16(narrow), wide) << testing::PrintToString(narrow);
    }
    const std::pair<std::u16string, std::string> lone_surrogates[] = {
        {{0xD800}, "\uFFFD"},
        {{0xDFFF}, "\uFFFD"},
        {{0xDC00, 0xD800}, "\uFFFD\uFFFD"},
        {{0xD800, 0xD800, 0xDC00}, "\uFFFD\U00010000"},
        {{0xDBFF, u'a'}, "\uFFFDa"},
    };
    for (const auto& [wide, narrow] : lone_surrogates) {
        EXPECT_EQ(base::to_utf8(wide), narrow);
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

TEST(hex, goes_both_ways_and_refuses_the_rest) {
    EXPECT_EQ(base::to_hex(std::vector<uint8_t>{0x00, 0x9A, 0xFF}), "009AFF");
    EXPECT_EQ(base::from_hex("009aFF"), (std::vector<uint8_t>{0x00, 0x9A, 0xFF}));
    EXPECT_EQ(base::from_hex(""), std::vector<uint8_t>{});
    for (const char* text : {"0", "0g", "/0", ":0", "@0", "G0", "`0", " 0"}) {
        EXPECT_EQ(base::from_hex(text), std::nullopt) << text;
    }
}

TEST(octets, are_read_within_their_buffer) {
    using namespace base;
    const octets_t octets = writer_t().octet(9).u32(0xFFFFFFF0).octet(1).octets();
    reader_t reader(octets);
    EXPECT_EQ(reader.octet(), 9);
    EXPECT_FALSE(reader.string()) << "a count past the end";
    EXPECT_TRUE(reader.at_end()) << "nothing is left after a failed read";
    EXPECT_FALSE(reader.octet());
    EXPECT_EQ(writer_t().string16(u"\u00EB").octets(), (octets_t{2, 0, 0, 0, 0xEB, 0}));
}

TEST(told_line, bears_its_priority_in_the_journal_alone) {
    std::FILE* const file = std::tmpfile();
    struct stat status {};
    fstat(fileno(file), &status);
    const std::string itself = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    for (const std::string& journal : {itself, itself + "0"}) {
        setenv("JOURNAL_STREAM", journal.c_str(), 1);
        base::tell_line(file, base::priority_t::warning, "modem lost\x1B");
    }
    unsetenv("JOURNAL_STREAM");
    base::tell_line(file, base::priority_t::error, "disk full");
    std::rewind(file);
    std::string text(100, 0);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    EXPECT_EQ(text, "<4>modem lost\\x1B\nmodem lost\\x1B\ndisk full\n");
}
