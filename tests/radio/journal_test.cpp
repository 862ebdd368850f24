// What the journal keeps, for how long, and in which order it gives it away.
#include "radio/journal.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

#include "radio/incomplete_messages.h"
#include "tests/radio/session_fixture.h"

namespace {

using radio::arrival_t;
using radio::journal_t;
using testing::HasSubstr;
using testing::IsEmpty;
using bodies_t = std::vector<std::string>;

constexpr int64_t day = 86'400;

class journal : public testing::Test {
  protected:
    journal() { open({.age = 7 * day, .datagrams = 1000}); }
    void open(const journal_t::bounds_t& bounds) {
        ASSERT_EQ(kept.emplace().open(radio::journal_file(folder), bounds), "");
    }
    /// As tests/radio/session_fixture.h has it, of a sender and a second of his.
    static arrival_t arrival(const std::string& body, const std::string& place, const std::string& from = "1234",
                             uint8_t second = 0) {
        air::deliver_t deliver = incoming(body, place);
        deliver.originator.text = from;
        deliver.service_centre_time.second = second;
        air::octets_t octets = *air::encode(deliver);
        radio::card_datagram_t card = *radio::card_datagram_of(radio::technology_t::gsm, octets);
        return {radio::technology_t::gsm, std::move(octets), std::move(card)};
    }
    bool take(const arrival_t& taken, int64_t now = 0) { return kept->take({&taken, 1}, now); }
    /// What would be handed over from the first on.
    bodies_t bodies() {
        bodies_t all;
        for (const journal_t::entry_t& entry : kept->next(0, 1000)) {
            const RIL_IN_DELIVER& in = entry.message.msgInDeliver;
            all.emplace_back(in.rgbMsg, in.rgbMsg + in.cchMsgLength);
        }
        return all;
    }
    uint16_t reference_for_driver(size_t position) {
        const RILMESSAGE message = kept->next(0, 1000)[position].message;
        const RIL_IN_DELIVER& in = message.msgInDeliver;
        return air::concatenation({in.rgbHdr, in.cbHdrLength})->reference;
    }
    void hand_over_all() {
        for (const journal_t::entry_t& entry : kept->next(0, 1000)) {
            kept->handed_over(entry.id, 0);
        }
    }

    const home_t home;
    const std::filesystem::path& folder = home.path();
    std::optional<journal_t> kept;
};

TEST_F(journal, a_message_leaves_with_its_last_part_in_whatever_order_they_come) {
    std::vector<std::string> order = {"1", "2", "3"};
    int reference = 10;
    do {
        const std::string head = std::to_string(reference++) + "030";
        take(arrival("x" + order[0], head + order[0]));
        hand_over_all();
        take(arrival("x" + order[1], head + order[1]));
        take(arrival("x" + order[0], head + order[0], "1234", 9));  // repeated, with another time
        EXPECT_EQ(bodies(), (bodies_t{"x" + order[0], "x" + order[1]}));
        journal_t reopened;  // as after a kill
        ASSERT_EQ(reopened.open(radio::journal_file(folder), {.age = day, .datagrams = 1000}), "");
        take(arrival("x" + order[2], head + order[2]));
        hand_over_all();
        EXPECT_THAT(bodies(), IsEmpty());
        take(arrival("x" + order[1], head + order[1]));
        EXPECT_THAT(bodies(), IsEmpty()) << "it is still known";
    } while (std::ranges::next_permutation(order).found);
}

TEST_F(journal, messages_of_one_reference_are_not_mixed) {
    take(arrival("a1", "050201", "111"));
    take(arrival("b1", "050201", "222"));
    take(arrival("c1", "050301", "111"));
    take(arrival("b2", "050202", "222"));
    hand_over_all();
    EXPECT_EQ(bodies(), (bodies_t{"a1", "c1"}));

    // The reference has come round; the driver would mix the new message with a1.
    take(arrival("new1", "050201", "111", 7));
    take(arrival("new2", "050202", "111", 7));
    take(arrival("c2", "050302", "111"));
    EXPECT_EQ(bodies(), (bodies_t{"a1", "c1", "new1", "new2", "c2"}));
    EXPECT_EQ(reference_for_driver(2), 0x05 + 125) << "far from those that come next";
    hand_over_all();
    EXPECT_EQ(bodies(), (bodies_t{"a1", "c1", "c2"}));
    take(arrival("third1", "050201", "111", 8));
    take(arrival("a2", "050202", "111", 8));
    hand_over_all();
    EXPECT_EQ(bodies(), (bodies_t{"a1", "c1", "c2"})) << "the newest that lacks a part takes it";
}

// It tells them apart by sender, reference and parts, and never forgets an incomplete one.
TEST_F(journal, the_driver_is_kept_from_mixing_what_the_header_tells_apart) {
    take(arrival("eight-1", "090201"));
    take(arrival("sixteen-1", "00090201"));
    EXPECT_NE(reference_for_driver(0), reference_for_driver(1));

    kept->expire(8 * day);  // both are dropped, but not by the driver
    EXPECT_THAT(bodies(), IsEmpty());
    take(arrival("new-1", "090201", "1234", 7), 9 * day);
    EXPECT_NE(reference_for_driver(0), 9);
    kept->begin_session();
    take(arrival("newer-1", "090201", "1234", 8), 9 * day);
    EXPECT_EQ(reference_for_driver(1), 9) << "a new driver knows of none";
}

TEST_F(journal, edge_values_of_the_concatenation_element) {
    take(arrival("reference 0", "000201"));
    take(arrival("part 0", "010200"));
    take(arrival("part 3 of 2", "010203"));
    take(arrival("part 1 of 0", "010001"));
    take(arrival("the last of 255", "01FFFF"));
    hand_over_all();
    EXPECT_EQ(bodies(), (bodies_t{"reference 0", "the last of 255"})) << "an invalid element counts for none";
    take(arrival("reference 0, part 2", "000202"));
    hand_over_all();
    EXPECT_EQ(bodies(), bodies_t{"the last of 255"});
}

TEST_F(journal, what_stays_incomplete_is_told_and_dropped_in_time) {
    take(arrival("early", "050301"), 1 * day);
    take(arrival("late", "050302"), 6 * day);
    take(arrival("whole", "060101"), 1 * day);
    take(arrival("young", "070201"), 6 * day);
    std::string error;
    const auto incomplete = radio::incomplete_messages(folder, &error);
    EXPECT_EQ(error, "");
    ASSERT_EQ(incomplete.size(), 2U);
    EXPECT_EQ(incomplete[0].sender, "+1234");
    EXPECT_TRUE(incomplete[0].received == 2 && incomplete[0].datagrams == 3 && incomplete[0].since == day);
    kept->expire(8 * day - 1);
    EXPECT_EQ(bodies().size(), 4U);
    testing::internal::CaptureStderr();
    kept->expire(8 * day);
    EXPECT_EQ(bodies(), (bodies_t{"whole", "young"})) << "seven days from the first part";
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("dropped 2 of the 3 datagrams of a message from +1234"));
}

TEST_F(journal, a_full_journal_drops_the_oldest_message) {
    open({.age = day, .datagrams = 3});
    for (const char* place : {"010201", "020301", "010202", "020302", "030101"}) {
        EXPECT_TRUE(take(arrival(place, place)));
    }
    EXPECT_EQ(bodies(), (bodies_t{"020301", "020302", "030101"}));
}

TEST_F(journal, a_file_that_is_none_is_told) {
    kept.reset();
    std::ofstream(radio::journal_file(folder)) << "this is no database, and long enough to be taken for none";
    EXPECT_THAT(kept.emplace().open(radio::journal_file(folder), {}),
                HasSubstr("journal.sqlite: file is not a database"));
    std::string error;
    EXPECT_THAT(radio::incomplete_messages(folder, &error), IsEmpty());
    EXPECT_THAT(error, HasSubstr("not a database"));
}

}  // namespace
