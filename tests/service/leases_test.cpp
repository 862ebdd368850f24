// What is handed in under a lease goes only as long as that is renewed.
#include <gmock/gmock.h>

#include <chrono>
#include <numeric>

#include "base/clock.h"
#include "radio/limits.h"
#include "tests/service/outbox_fixture.h"

namespace {

using base::advance_clock;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using enum outbox_state_t;
using ids_t = std::vector<int64_t>;

const std::string ann = "+12025550100";
const std::string zoe = "+12025550199";
const reason_t full{"Memory capacity exceeded (+CMS ERROR: 22)", "the receiver's memory is full"};
constexpr uint64_t second = 1000;

class leases : public testing::Test {
  protected:
    int64_t add(const std::string& number, uint32_t lease, const std::string& token = {}) {
        return box.add(number, "card", 0, token, lease);
    }
    outbox_state_t state(int64_t id) { return box.view(id).message.state; }
    std::string last_text() {
        const auto events = box->events(0, 0, 0, 1'000'000)["events"];
        return events.empty() ? "" : events.back()["text"];
    }

    outbox_home_t box;
};

TEST_F(leases, a_card_is_called_back_when_nobody_renews_its_lease) {
    const int64_t renewed = add(ann, 20);
    const int64_t complete = add(zoe, 20);
    const int64_t waits = add(ann, 20);
    const int64_t ordinary = add(ann, 0);
    EXPECT_EQ(box.take(), renewed);
    EXPECT_EQ(box.take(), complete);
    box->note_progress(complete, 3, 240);
    EXPECT_THAT(box->renew(20, {ordinary, waits, 99}), ElementsAre(ordinary, 99)) << "they have no lease";
    EXPECT_NEAR(static_cast<double>(*box->next_lease_end()), static_cast<double>(base::tick64() + 20 * second), 500);

    advance_clock(15 * second);
    EXPECT_THAT(box->renew(20, {renewed}), IsEmpty());
    EXPECT_THAT(box->end_leases(), IsEmpty());
    advance_clock(6 * second);
    box->note_success(ann);
    EXPECT_EQ(box.take(), 0) << "it must not go any more, nor before it those behind it";
    EXPECT_THAT(box->renew(20, {waits, complete}), ElementsAre(waits, complete)) << "too late";
    EXPECT_THAT(box->end_leases(), ElementsAre(complete));
    EXPECT_EQ(box.take(), ordinary);
    EXPECT_EQ(state(waits), cancelled);
    EXPECT_EQ(state(complete), cancelling);
    EXPECT_EQ(state(renewed), sending);
    EXPECT_THAT(last_text(), EndsWith("Ann; 0 of 7 datagrams had been sent; its lease ended: who handed it in did not "
                                      "renew it"));
    EXPECT_THAT(box->renew(20, {complete}), ElementsAre(complete)) << "it is being called back";
    EXPECT_TRUE(box->finish_sent(complete)) << "all of it went meanwhile";
    EXPECT_EQ(state(complete), sent);

    EXPECT_TRUE(box->refuse(renewed, 1, full)) << "it waits again";
    advance_clock(15 * second);
    EXPECT_THAT(box->end_leases(), IsEmpty());
    EXPECT_EQ(state(renewed), cancelled);
    EXPECT_FALSE(box->next_lease_end());
    EXPECT_THAT(box.events(),
                ElementsAre("queued 1", "queued 2", "queued 3", "queued 4", "cancelled 3", "sent 2", "cancelled 1"));
    EXPECT_THAT(box->list(0, true, 1)[0].message.reason.text, HasSubstr("its lease ended"));
}

TEST_F(leases, none_outlives_the_service) {
    const int64_t with_driver = add(ann, 3600, "1");
    EXPECT_EQ(box.take(), with_driver);
    box->note_progress(with_driver, 3, 240);
    const int64_t waits = add(ann, 3600, "2");
    const int64_t aside = add(zoe, 3600, "3");
    EXPECT_EQ(box.take(), aside);
    EXPECT_TRUE(box->set_aside(aside, 0, 1, full, false));
    const int64_t ordinary = add(ann, 0, "4");
    EXPECT_EQ(box->counts().leased, 2);
    box.reopen();
    EXPECT_EQ(state(with_driver), cancelled);
    EXPECT_EQ(state(waits), cancelled);
    EXPECT_THAT(box.told, ElementsAre(HasSubstr("aside"), EndsWith("Ann; its lease ended with the service"),
                                      EndsWith("Ann; its lease ended with the service")));
    EXPECT_FALSE(box->next_lease_end());
    EXPECT_EQ(box.take(), ordinary);
    EXPECT_TRUE(box->retry(aside, 0, &box.problem));
    EXPECT_FALSE(box.view(aside).message.leased) << "who set it going again answers for it";
    box.reopen();
    EXPECT_EQ(state(aside), waiting);
    EXPECT_EQ(state(ordinary), waiting);
}

// A row: what became of the first card, whether a second one with its token is another, with a lease and without one,
// and whether it has then a lease that holds longer.
TEST_F(leases, a_token_is_free_again_when_its_card_was_cancelled) {
    const struct {
        const char* what;
        std::function<void(int64_t)> becomes;
        bool anew, renewed;
    } rows[] = {
        {"waits", [](int64_t) {}, false, true},
        {"is being sent", [&](int64_t id) { EXPECT_EQ(box.take(), id); }, false, true},
        {"is being called back", [&](int64_t id) { EXPECT_TRUE(box.take() == id && box->cancel(id, &box.problem)); },
         false, false},
        {"was sent", [&](int64_t id) { EXPECT_TRUE(box.take() == id && box->finish_sent(id)); }, false, false},
        {"was set aside", [&](int64_t id) { EXPECT_TRUE(box.take() == id && box->set_aside(id, 0, 1, full, false)); },
         false, false},
        {"was called back",
         [&](int64_t) {
             advance_clock(11 * second);
             box->end_leases();
         },
         true, true},
        {"was cancelled", [&](int64_t id) { EXPECT_TRUE(box->cancel(id, &box.problem)); }, true, true},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string to = ann + std::to_string(++number);
        const std::string token = "token " + std::to_string(number);
        const int64_t first = add(to, 10, token);
        row.becomes(first);
        EXPECT_EQ(add(to, 0, token), first) << "without a lease each is handed in once";
        const int64_t second_one = add(to, 100, token);
        EXPECT_EQ(second_one != first, row.anew);
        EXPECT_EQ(box->renew(10, {second_one}).empty(), row.renewed);
        EXPECT_EQ(box.view(first).message.token, row.anew ? "" : token);
        EXPECT_EQ(box.view(second_one).message.token, token);
        if (second_one != first || state(first) == waiting) {
            EXPECT_TRUE(box->cancel(second_one, &box.problem));
        }
    }
}

TEST_F(leases, one_that_cannot_be_called_back_goes_no_more_and_is_tried_again) {
    const int64_t with_driver = add(ann, 10);
    EXPECT_EQ(box.take(), with_driver);
    const int64_t waits = add(zoe, 10);
    advance_clock(10 * second);
    box.lock();
    testing::internal::CaptureStderr();
    EXPECT_THAT(box->end_leases(), ElementsAre(with_driver)) << "nothing more of it goes";
    EXPECT_FALSE(box->next_lease_end()) << "nobody looks again and again";
    ASSERT_TRUE(box->next_due());
    EXPECT_LE(*box->next_due(), base::unix_time() + 6);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cannot use the outbox"));
    box.unlock();
    EXPECT_EQ(box.take(), 0);
    EXPECT_THAT(box->renew(10, {with_driver, waits}), ElementsAre(with_driver, waits));
    advance_clock(6 * second);
    EXPECT_TRUE(box->next_lease_end());
    EXPECT_THAT(box->end_leases(), ElementsAre(with_driver));
    EXPECT_EQ(state(with_driver), cancelling);
    EXPECT_EQ(state(waits), cancelled);
    EXPECT_THAT(box->end_leases(), IsEmpty());
}

TEST_F(leases, ten_thousand_are_renewed_at_once) {
    constexpr int64_t cards = 10'000;
    EXPECT_EQ(add(ann, 30), 1);
    EXPECT_EQ(box.take(), 1);
    EXPECT_TRUE(box->refuse(1, 1, full)) << "nobody asks how many go before those that are held back";
    for (int64_t id = 2; id <= cards; ++id) {
        ASSERT_EQ(add(ann, 30), id);
    }
    ids_t ids(cards);
    std::iota(ids.begin(), ids.end(), 1);
    const auto seconds_of = [](const auto& work) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    const double renewing = seconds_of([&] { EXPECT_THAT(box->renew(60, ids), IsEmpty()); });
    EXPECT_LT(renewing, 1);
    advance_clock(40 * second);
    box->end_leases();
    EXPECT_EQ(box->counts().waiting, cards);
    advance_clock(25 * second);
    size_t times = 0;
    const double ending = seconds_of([&] {
        for (; box->next_lease_end(); ++times) {
            box->end_leases();
        }
    });
    EXPECT_LT(ending, 30);
    EXPECT_GT(times, 1U) << "others get a turn";
    EXPECT_EQ(box->counts().waiting, 0);
    std::printf("%ld leases: renewed in %.1f ms, called back in %.1f s\n", static_cast<long>(cards), renewing * 1000,
                ending);
}

}  // namespace
