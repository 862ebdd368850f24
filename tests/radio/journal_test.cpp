// What the journal keeps, for how long, and what it gives away.
#include "radio/journal.h"

#include <gmock/gmock.h>

#include <fstream>

#include "radio/incomplete_messages.h"
#include "tests/radio/session_fixture.h"

namespace {

using radio::arrival_t;
using radio::journal_t;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using cards_t = std::vector<std::string>;

constexpr uint64_t day = 86'400'000;  // milliseconds

class journal : public testing::Test {
  protected:
    journal() { open(); }
    void open(size_t datagrams = 1000) {
        kept.reset();
        const journal_t::bounds_t bounds{
            .age = 7 * 86'400, .datagrams = datagrams, .rules = {.close = 30, .wait = 120, .apart = 86'400}};
        ASSERT_EQ(kept.emplace().open(radio::journal_file::path(folder), bounds), "");
    }
    /// As tests/radio/session_fixture.h has it, of a sender and a second of his.
    static arrival_t arrival(const std::string& body, const std::string& place = {}, uint8_t second = 0,
                             const std::string& from = "1234") {
        air::deliver_t deliver = incoming(body, place);
        deliver.originator.text = from;
        deliver.service_centre_time.second = second;
        air::octets_t octets = *air::encode(deliver);
        radio::card_datagram_t card = *radio::card_datagram_of(radio::technology_t::gsm, octets);
        return {radio::technology_t::gsm, std::move(octets), std::move(card)};
    }
    bool take(const arrival_t& taken) { return kept->take({&taken, 1}); }
    bool take(const std::vector<arrival_t>& taken) { return kept->take(taken); }
    /// What would be handed over from the first on; it leaves, if so.
    cards_t cards(bool leave = true) {
        cards_t all;
        for (int64_t last = 0; const auto message = kept->next(last);) {
            all.emplace_back();
            for (const auto& datagram : message->datagrams) {
                const air::octets_t body = radio::card_datagram_of(datagram.technology, datagram.octets)->body;
                all.back().append(body.begin(), body.end());
            }
            last = message->number;
            if (leave) {
                kept->finish(last);
            }
        }
        return all;
    }
    /// "sender received/datagrams" of each.
    cards_t incomplete() {
        cards_t all;
        std::string error;
        for (const radio::incomplete_message_t& message : radio::incomplete_messages(folder, &error)) {
            EXPECT_NEAR(static_cast<double>(message.since), static_cast<double>(std::time(nullptr)), 60);
            all.push_back(fmt::format("{} {}/{}", message.sender, message.received, message.datagrams));
        }
        EXPECT_EQ(error, "");
        return all;
    }
    void change(const char* statements) {
        sqlite3* opened = nullptr;
        sqlite3_open(radio::journal_file::path(folder).c_str(), &opened);
        const base::sqlite::connection_t connection(opened);
        ASSERT_EQ(sqlite3_exec(opened, statements, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(opened);
    }
    bool has_log() { return std::filesystem::exists(folder / "journal.sqlite-wal"); }

    const home_t home;
    const std::filesystem::path& folder = home.path();
    std::optional<journal_t> kept;
};

TEST_F(journal, a_message_is_given_away_whole_and_in_order_and_stays_until_it_has_been_handed_over) {
    take({arrival("b", "070302", 4), arrival("alone"), arrival("a", "070301", 0)});
    EXPECT_THAT(cards(false), ElementsAre("alone"));
    EXPECT_THAT(incomplete(), ElementsAre("+1234 2/3"));
    open();  // as after a kill
    take(arrival("c", "070303", 8));
    EXPECT_THAT(cards(false), ElementsAre("alone", "abc"));
    open();
    EXPECT_THAT(cards(), ElementsAre("alone", "abc"));
    open();
    EXPECT_THAT(cards(), IsEmpty());
    EXPECT_THAT(incomplete(), IsEmpty());
}

TEST_F(journal, a_copy_is_the_same_octets_with_the_same_time_stamp) {
    const arrival_t first = arrival("a", "070201");
    testing::internal::CaptureStderr();
    take({first, first, arrival("b", "070202", 4)});
    EXPECT_THAT(cards(), ElementsAre("ab"));
    open();
    take(first);
    take({arrival("a", "070201", 20), arrival("b", "070202", 24)});
    EXPECT_THAT(cards(), ElementsAre("ab")) << "the same card, sent again";
    take(arrival("b", "070202", 50));
    EXPECT_THAT(incomplete(), IsEmpty()) << "a datagram that its sender submitted again is nobody's loss";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("a datagram from +1234 came again"));
}

TEST_F(journal, what_the_header_tells_apart_is_kept_apart) {
    take({arrival("a", "070201"), arrival("b", "00070202"), arrival("c", "070302"), arrival("d", "080202"),
          arrival("e", "070202", 0, "1235")});
    EXPECT_THAT(cards(), IsEmpty());
    EXPECT_EQ(incomplete().size(), 5U);
}

// It goes to the driver, which tells in its log what is wrong, and hinders no other.
TEST_F(journal, what_the_driver_refuses_is_handed_over_and_forgotten) {
    take({arrival("part 3 of 2", "070203"), arrival("twin", "070000"), arrival("twin", "070201")});
    ASSERT_TRUE(kept->next(0)->refused);
    EXPECT_THAT(cards(), ElementsAre("part 3 of 2", "twin"));
    take({arrival("part 3 of 2", "070203"), arrival("!", "070202", 4)});
    EXPECT_THAT(cards(), ElementsAre("part 3 of 2", "twin!"));
}

TEST_F(journal, a_doubtful_message_waits_for_better_datagrams) {
    take({arrival("a", "070201", 0), arrival("b", "070202", 50)});
    EXPECT_THAT(cards(), IsEmpty());
    const uint64_t due = kept->next_look();
    EXPECT_NEAR(static_cast<double>(due - base::tick64()), 120'000, 2000);
    base::advance_clock(due - base::tick64());
    kept->look_again();
    EXPECT_THAT(cards(), ElementsAre("ab"));
    EXPECT_GT(kept->next_look(), base::tick64() + day);
}

TEST_F(journal, ages_are_counted_while_the_service_runs) {
    take({arrival("a", "070301"), arrival("x", "090201", 0, "99")});
    base::advance_clock(6 * day);
    kept->expire();
    open();  // the clock of this process goes on: nothing of that counts
    base::advance_clock(day / 2);
    take(arrival("b", "070302", 4));
    kept->expire();
    EXPECT_EQ(incomplete().size(), 2U);
    testing::internal::CaptureStderr();
    base::advance_clock(day / 2 + 10'000);
    kept->expire();
    EXPECT_THAT(incomplete(), IsEmpty()) << "seven days from the first datagram";
    EXPECT_EQ(kept->counts().given_up, 3U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("dropped 2 of the 3 datagrams of a message from +1234: incomplete for 168 hours"));
    take(arrival("alone"));
    EXPECT_THAT(cards(), ElementsAre("alone"));
    base::advance_clock(8 * day);
    kept->expire();
    take(arrival("alone"));
    EXPECT_THAT(cards(), ElementsAre("alone")) << "forgotten: no copy any more";
}

TEST_F(journal, what_expires_goes_a_hundred_at_a_time_also_where_it_was_begun_before_a_restart) {
    const auto each = [&](const auto& what) {
        for (int sender = 1000; sender < 1250; ++sender) {
            what(std::to_string(sender));
        }
    };
    each([&](const std::string& sender) {
        take({arrival("a", "070201", 0, sender), arrival("alone", "", 0, sender)});
    });
    EXPECT_EQ(cards().size(), 250U);
    base::advance_clock(8 * day);
    kept->expire();
    EXPECT_EQ(kept->counts().given_up, 100U);
    EXPECT_LE(kept->next_look(), base::tick64());
    open();
    kept->expire();
    while (kept->next_look() <= base::tick64()) {
        kept->look_again();
    }
    EXPECT_EQ(kept->counts().given_up, 150U);
    EXPECT_THAT(incomplete(), IsEmpty());
    each([&](const std::string& sender) { take(arrival("alone", "", 0, sender)); });
    EXPECT_EQ(cards().size(), 250U) << "forgotten, each of them";
}

TEST_F(journal, what_has_gone_is_known_as_many_as_may_wait) {
    open(4);
    for (const char* body : {"1", "2", "3", "4", "5", "6"}) {
        take(arrival(body));
        cards();
    }
    kept->expire();
    for (const char* body : {"1", "2", "3", "4", "5", "6"}) {
        take(arrival(body));
    }
    EXPECT_THAT(cards(), ElementsAre("1", "2")) << "the first to go are forgotten";
}

TEST_F(journal, a_flood_costs_its_sender_his_oldest_and_nobody_a_whole_card) {
    open(4);
    for (const char* place : {"010201", "020201", "030201", "040201", "050201"}) {
        EXPECT_TRUE(take(place == std::string("020201") ? arrival("a", "070201", 0, "99") : arrival("x", place)));
    }
    EXPECT_THAT(incomplete(), testing::UnorderedElementsAre("+1234 1/2", "+99 1/2", "+1234 1/2", "+1234 1/2"));
    take(arrival("b", "070202", 4, "99"));
    EXPECT_THAT(cards(false), ElementsAre("ab"));
    EXPECT_TRUE(take({arrival("second", "", 1), arrival("third", "", 2)}));
    EXPECT_THAT(incomplete(), IsEmpty());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(take(arrival("fourth", "", 3))) << "it stays on the modem";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("the journal holds 4 datagrams of cards"));
    EXPECT_THAT(cards(), ElementsAre("ab", "second", "third"));
    EXPECT_TRUE(take(arrival("fourth", "", 3)));
    for (int text = 0; text < 6; ++text) {
        EXPECT_TRUE(kept->keep_text(20, fmt::format("text {}", text)));
    }
    EXPECT_EQ(kept->first_text()->pdu, "text 2") << "four are kept";
}

TEST_F(journal, what_cannot_be_written_is_taken_back_and_noted_later) {
    take({arrival("a", "070201"), arrival("done")});
    change(
        "CREATE TRIGGER full BEFORE INSERT ON datagrams WHEN new.body = x'62' BEGIN SELECT RAISE(ABORT, 'no'); END;"
        "CREATE TRIGGER stuck BEFORE UPDATE ON datagrams BEGIN SELECT RAISE(ABORT, 'no'); END;");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(take({arrival("c", "080202", 4), arrival("b", "070202", 4)}));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cannot use the journal"));
    EXPECT_THAT(incomplete(), ElementsAre("+1234 1/2"));
    EXPECT_THAT(cards(), ElementsAre("done"));
    EXPECT_THAT(cards(), IsEmpty()) << "this driver has it";
    change("DROP TRIGGER full; DROP TRIGGER stuck");
    base::advance_clock(kept->next_look() - base::tick64());
    kept->look_again();
    EXPECT_TRUE(take({arrival("c", "080202", 4), arrival("b", "070202", 4)}));
    open();
    EXPECT_THAT(cards(), ElementsAre("ab"));
}

TEST_F(journal, a_lock_of_another_program_delays_for_milliseconds) {
    sqlite3* other = nullptr;
    sqlite3_open(radio::journal_file::path(folder).c_str(), &other);
    const base::sqlite::connection_t connection(other);
    sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    const auto began = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(take(arrival("a")));
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("is locked; another program holds it"));
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    EXPECT_TRUE(take(arrival("a")));
}

// What an earlier version had: a message of two that waits, one that was handed over.
TEST_F(journal, a_file_of_the_first_version_goes_on) {
    kept.reset();
    std::filesystem::remove(radio::journal_file::path(folder));
    const arrival_t waiting = arrival("a", "070201");
    const arrival_t gone = arrival("done");
    change(fmt::format("CREATE TABLE datagrams (id INTEGER PRIMARY KEY, came, technology, octets, identity, sender, "
                       "message, generation, alias, part, parts, body); CREATE TABLE finished (identity, at);"
                       "INSERT INTO datagrams VALUES (5, {}, 0, x'{}', x'{}', '+1234', 'm', 0, 7, 1, 2, x'61');"
                       "INSERT INTO finished VALUES (x'{}', 0)",
                       std::time(nullptr), base::to_hex(waiting.octets), base::to_hex(waiting.card.identity),
                       base::to_hex(gone.card.identity))
               .c_str());
    open();
    EXPECT_THAT(incomplete(), ElementsAre("+1234 1/2"));
    take({arrival("b", "070202", 4), gone});
    EXPECT_THAT(cards(), ElementsAre("ab"));
    change("PRAGMA user_version = 3");
    EXPECT_THAT(kept.emplace().open(radio::journal_file::path(folder), {}), HasSubstr("newer version"));
}

TEST_F(journal, a_file_is_whole_after_a_clean_end_and_one_that_is_none_is_told) {
    take(arrival("a"));
    EXPECT_TRUE(has_log());
    kept.reset();
    EXPECT_FALSE(has_log()) << "a copy of the one file holds all";
    std::ofstream(radio::journal_file::path(folder)) << "this is no database, and long enough to be taken for none";
    EXPECT_THAT(kept.emplace().open(radio::journal_file::path(folder), {}),
                HasSubstr("journal.sqlite: file is not a database; put back a copy of it"));
    std::string error;
    EXPECT_THAT(radio::incomplete_messages(folder, &error), IsEmpty());
    EXPECT_THAT(error, HasSubstr("not a database"));
}

}  // namespace
