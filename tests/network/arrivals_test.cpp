// Which cards have arrived, of what comes in any order, twice, not at all, or without end.
#include "network/arrivals.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "network/composition.h"

namespace network {
namespace {

const std::string alice = "+491700000001";
const std::string bob = "+491700000002";
const std::string carol = "491700000003";

std::vector<air::deliver_t> datagrams(const air::octets_t& card, const std::string& from, uint8_t reference) {
    std::vector<air::deliver_t> all;
    for (const air::octets_t& part : compose_octets(card, card_ports, carol, reference)) {
        const air::submit_t submit = air::decode_submit(part).value();
        air::deliver_t deliver;
        deliver.originator = air::address_from_number(from).value();
        deliver.data_coding = submit.data_coding;
        deliver.header_indicator = submit.header_indicator;
        deliver.user_data = submit.user_data;
        all.push_back(deliver);
    }
    return all;
}

TEST(arrivals, each_whole_card_is_found_once) {
    arrivals_t arrivals;
    const air::octets_t small(10, 's');
    const air::octets_t large(300, 'l');
    auto of_alice = datagrams(large, alice, 1);
    auto of_bob = datagrams(large, bob, 1);  // the same reference
    std::ranges::reverse(of_bob);
    for (size_t i = 0; i < of_alice.size(); ++i) {
        EXPECT_FALSE(arrivals.take(carol, large));
        arrivals.add(carol, of_alice[i]);
        arrivals.add(carol, of_alice[i]);
        arrivals.add(carol, of_bob[i]);
    }
    arrivals.add(carol, datagrams(small, alice, 2)[0]);
    EXPECT_FALSE(arrivals.take("1", large));
    EXPECT_FALSE(arrivals.take(carol, air::octets_t(299, 'l')));
    EXPECT_TRUE(arrivals.take(carol, large));
    EXPECT_TRUE(arrivals.take(carol, large));
    EXPECT_FALSE(arrivals.take(carol, large));

    const auto left = arrivals.at(carol);
    ASSERT_EQ(left.size(), 2U) << "the small card, and what came twice of Alice's last datagram";
    EXPECT_EQ(left[0].from, alice);
    EXPECT_EQ(left[0].octets, small.size());
    EXPECT_EQ(left[1].have, 1);
    EXPECT_EQ(left[1].parts, 3);
}

TEST(arrivals, a_reference_that_comes_round_begins_another_card) {
    arrivals_t arrivals;
    const air::octets_t next(300, 'n');
    arrivals.add(carol, datagrams(air::octets_t(300, 'o'), alice, 1)[0]);  // the others never come
    for (const air::deliver_t& datagram : datagrams(next, alice, 1)) {
        arrivals.add(carol, datagram);
    }
    EXPECT_TRUE(arrivals.take(carol, next));
    EXPECT_TRUE(arrivals.at(carol).empty());
}

TEST(arrivals, a_flood_takes_no_more_than_the_room) {
    constexpr size_t room = 100'000;
    arrivals_t arrivals(room);
    const air::octets_t card(300, 'c');
    for (unsigned i = 0; i < 2000; ++i) {
        arrivals.add(carol, datagrams(card, "1" + std::to_string(i), 0)[0]);
        arrivals.add(carol, datagrams(air::octets_t(100, static_cast<uint8_t>(i)), alice, 0)[0]);
    }
    EXPECT_LT(arrivals.at(carol).size(), 2 * room / 200);
    EXPECT_TRUE(arrivals.take(carol, air::octets_t(100, static_cast<uint8_t>(1999))));
    const auto last = datagrams(card, "11999", 0);
    arrivals.add(carol, last[1]);
    arrivals.add(carol, last[2]);
    EXPECT_TRUE(arrivals.take(carol, card)) << "the last begun is not forgotten";
}

}  // namespace
}  // namespace network
