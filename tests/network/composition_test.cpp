// Messages made of what people have at hand: where they are cut, and what stands in each part.
#include "network/composition.h"

#include <gtest/gtest.h>

#include "air/gsm_alphabet.h"

namespace network {
namespace {

const std::string bob = "+491700000002";

std::vector<air::submit_t> decoded(const composed_t& parts) {
    std::vector<air::submit_t> messages;
    for (const air::octets_t& part : parts) {
        const auto message = air::decode_submit(part);
        EXPECT_TRUE(message);
        messages.push_back(message.value_or(air::submit_t{}));
    }
    return messages;
}

/// What a part of a text says, its header's septets left out.
std::string text_of(const air::submit_t& part) {
    const std::vector<uint8_t> septets = air::gsm_alphabet::unpack(part.user_data, part.user_data_length);
    constexpr size_t header_septets = 7;
    return air::gsm_alphabet::to_utf8(std::span(septets).subspan(part.header_indicator ? header_septets : 0));
}

TEST(composition, a_text_is_cut_between_characters_only) {
    const std::string longest(160, 'x');
    const auto whole = decoded(compose_text(longest, bob, 7));
    ASSERT_EQ(whole.size(), 1U);
    EXPECT_FALSE(whole[0].header_indicator);
    EXPECT_EQ(text_of(whole[0]), longest);
    EXPECT_EQ(whole[0].destination, air::address_from_number(bob));

    // The euro sign takes two septets, of which the first would be the 153rd.
    const auto cut = decoded(compose_text(std::string(152, 'x') + "€" + std::string(10, 'y'), bob, 7));
    ASSERT_EQ(cut.size(), 2U);
    EXPECT_EQ(text_of(cut[0]), std::string(152, 'x'));
    EXPECT_EQ(text_of(cut[1]), "€" + std::string(10, 'y'));
    EXPECT_EQ(air::octets_t(cut[1].user_data.begin(), cut[1].user_data.begin() + 6), (air::octets_t{5, 0, 3, 7, 2, 2}));

    // Of a pair of surrogates the first would be the 67th unit.
    std::string letters;
    for (int i = 0; i < 66; ++i) {
        letters += "ł";
    }
    const auto wide = decoded(compose_text(letters + "😀" + letters, bob, 7));
    ASSERT_EQ(wide.size(), 3U);
    EXPECT_EQ(wide[0].user_data.size(), 6U + 66 * 2);
    EXPECT_EQ(air::octets_t(wide[1].user_data.begin() + 6, wide[1].user_data.begin() + 10),
              (air::octets_t{0xD8, 0x3D, 0xDE, 0x00}));
    EXPECT_EQ(wide[2].user_data.size(), 6U + 1 * 2);
}

TEST(composition, octets_pass_behind_the_header_of_their_port) {
    air::octets_t octets;
    for (unsigned i = 0; i < 134; ++i) {
        octets.push_back(static_cast<uint8_t>(i * 37));
    }
    const auto parts = decoded(compose_octets(octets, card_ports, bob, 9));
    ASSERT_EQ(parts.size(), 2U);
    air::octets_t together;
    for (const air::submit_t& part : parts) {
        const auto split = air::split_user_data(part.user_data);
        ASSERT_TRUE(split);
        EXPECT_EQ(air::destination_port(split->header), 9204);
        together.insert(together.end(), split->body.begin(), split->body.end());
    }
    EXPECT_EQ(together, octets);
    octets.pop_back();  // as many as fit with the ports alone
    const auto one = compose_octets(octets, push_ports, bob, 9);
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(decoded(one)[0].user_data[0], 6);

    EXPECT_EQ(compose_octets(air::octets_t(255 * 128, 1), card_ports, bob, 0).size(), 255U);
    EXPECT_TRUE(compose_octets(air::octets_t(255 * 128 + 1, 1), card_ports, bob, 0).empty());
    EXPECT_TRUE(compose_octets({}, card_ports, bob, 0).empty());
    EXPECT_TRUE(compose_text("x", "bob", 0).empty());
}

}  // namespace
}  // namespace network
