// What `zpd count` tells without a driver, against how the driver cuts.
#include "cli/datagram_count.h"

#include <gtest/gtest.h>

#include <random>

#include "com/sms/sms.h"

namespace {

std::mt19937 generator(4);  // NOLINT: the cards are to be the same each time

/// UTF-8 of about so many octets, with characters of one to four; where `rare`, those of several are few.
std::string text_of(size_t size, bool rare) {
    constexpr std::string_view characters[] = {"a", "\xC3\xBC", "\xE2\x82\xAC", "\xF0\x9F\x90\x9D"};
    std::string text;
    while (text.size() < size) {
        text += characters[rare && generator() % 50 != 0 ? 0 : generator() % 4];
    }
    return text;
}

TEST(datagram_count, is_that_of_the_pieces_that_the_driver_cuts) {
    for (int i = 0; i < 4000; ++i) {
        const size_t size = i % 20 != 0 ? generator() % 700 : 31500 + generator() % 1300;
        const std::string card = text_of(size, i % 2 == 0);
        for (const bool is_utf8 : {false, true}) {
            for (const bool is_long : {false, true}) {
                std::vector<uint32_t> pieces;
                const bool fits = sms_split_chunks(card, is_utf8, is_long, 0, pieces);
                const size_t count = datagram_count(card, is_utf8, is_long);
                EXPECT_EQ(fits, count <= most_datagrams) << card.size();
                EXPECT_TRUE(!fits || count == pieces.size()) << card.size() << ": " << count;
            }
        }
    }
}

}  // namespace
