// What the outbox keeps, gives out and tells, on a real file.
#include "service/outbox.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <future>

#include "base/clock.h"
#include "device/service_requests.h"
#include "radio/limits.h"
#include "tests/service/outbox_fixture.h"

namespace {

using base::advance_clock;
using base::unix_time;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using enum outbox_state_t;

const std::string ann = "+12025550100";
const std::string zoe = "+12025550199";
const reason_t full{"Memory capacity exceeded (+CMS ERROR: 22)", "the receiver's memory is full"};

TEST(outbox, cards_go_in_their_order_and_one_to_a_number_of_which_nothing_is_known) {
    outbox_home_t box;
    const int64_t first = box.add(ann);
    const int64_t second = box.add(ann);
    const int64_t other = box.add(zoe);
    const int64_t third = box.add(ann);
    EXPECT_EQ(box.take(), first);
    EXPECT_EQ(box.take(), other);
    EXPECT_EQ(box.take(), 0);
    const int64_t fourth = box.add(ann, "card", unix_time());
    box->expire();
    EXPECT_EQ(box.view(fourth).message.state, set_aside);
    EXPECT_EQ(box.take(), 0) << "the end of one that waited lets no other go";
    box->note_success(ann);
    EXPECT_EQ(box.take(), second);
    EXPECT_EQ(box.take(), third);
    EXPECT_TRUE(box->finish_sent(other) && box->give_back(second) && box->finish_sent(first));
    EXPECT_EQ(box.take(), second);
    const auto counts = box->counts();
    EXPECT_EQ(std::tuple(counts.waiting, counts.sending, counts.set_aside, counts.datagrams), std::tuple(0, 2, 1, 14));
}

TEST(outbox, a_number_that_is_refused_holds_back_its_own_cards_ever_longer) {
    outbox_home_t box;
    const int64_t first = box.add(ann);
    const int64_t second = box.add(ann);
    int64_t refusals = 0;
    for (const int64_t pause : {60, 120, 240, 480, 960, 1920, 3600, 3600}) {
        EXPECT_EQ(box.take(), first);
        EXPECT_TRUE(box->refuse(first, ++refusals, full));
        const auto view = box.view(first);
        EXPECT_EQ(view.message.state, waiting);
        EXPECT_EQ(view.message.reason.text, full.text);
        EXPECT_NEAR(static_cast<double>(view.hold->until), static_cast<double>(unix_time() + pause), 2);
        EXPECT_EQ(box->next_due(), view.hold->until);
        box.reopen();
        advance_clock(static_cast<uint64_t>(pause - 5) * 1000);
        EXPECT_EQ(box.take(), 0) << "before " << pause << " s";
        const int64_t other = box.add(zoe);
        EXPECT_EQ(box.take(), other) << "of which nothing was refused";
        EXPECT_TRUE(box->finish_sent(other));
        advance_clock(5000);
    }
    EXPECT_EQ(box.take(), first);
    EXPECT_EQ(box.take(), 0) << "one is tried for all";
    EXPECT_TRUE(box->refuse(first, ++refusals, full));
    EXPECT_TRUE(box->retry(second, 0, &box.problem));
    EXPECT_EQ(box.take(), second) << "who asks for it gets it at once";
    EXPECT_EQ(box.take(), 0);
    box->note_success(ann);
    EXPECT_EQ(box.take(), first);
}

// A row: what is done with a card of seven datagrams, what it is then, how its last event ends, and what it is at the
// next start.
TEST(outbox, each_state_outlives_the_service_and_is_told) {
    struct row_t {
        const char* what;
        std::function<void(outbox_home_t&, int64_t)> steps;
        outbox_state_t state, restarted;
        const char* last_event;
    };
    const auto with_driver = [](outbox_home_t& box, int64_t id) {
        EXPECT_EQ(box.take(), id);
        box->note_progress(id, 3, 240);
    };
    const auto cancel = [](outbox_home_t& box, int64_t id) { EXPECT_TRUE(box->cancel(id, &box.problem)); };
    const auto called_back = [&](outbox_home_t& box, int64_t id) {
        with_driver(box, id);
        cancel(box, id);
    };
    const auto aside = [&](outbox_home_t& box, int64_t id) {
        with_driver(box, id);
        EXPECT_TRUE(box->set_aside(id, 3, 1, full, true));
    };
    const row_t rows[] = {
        {"handed in", [](auto&, auto) {}, waiting, waiting, "queued message 1 to +12025550100: Ann (7 datagrams)"},
        {"given to the driver", with_driver, sending, waiting, "(7 datagrams)"},
        {"given back",
         [&](auto& box, auto id) {
             with_driver(box, id);
             EXPECT_TRUE(box->give_back(id));
         },
         waiting, waiting, "(7 datagrams)"},
        {"cancelled", cancel, cancelled, cancelled, "Ann; 0 of 7 datagrams had been sent"},
        {"cancelled with the driver", called_back, cancelling, cancelled, "Ann; 3 of 7 datagrams had been sent"},
        {"cancelled, and given back",
         [&](auto& box, auto id) {
             called_back(box, id);
             EXPECT_TRUE(box->give_back(id));
         },
         cancelled, cancelled, "Ann; 3 of 7 datagrams had been sent"},
        {"cancelled as it was refused",
         [&](auto& box, auto id) {
             called_back(box, id);
             box->note_progress(id, 4, 240);
             EXPECT_TRUE(box->refuse(id, 1, full));
         },
         cancelled, cancelled, "Ann; 4 of 7 datagrams had been sent"},
        {"cancelled too late",
         [&](auto& box, auto id) {
             called_back(box, id);
             EXPECT_TRUE(box->finish_sent(id));
             cancel(box, id);
         },
         sent, sent, "sent message 1 to +12025550100: Ann (7 datagrams)"},
        {"set aside", aside, set_aside, set_aside,
         "Ann: Memory capacity exceeded (+CMS ERROR: 22): the receiver's memory is full; zpd outbox retry 1"},
        {"set aside, and cancelled",
         [&](auto& box, auto id) {
             aside(box, id);
             cancel(box, id);
         },
         cancelled, cancelled, "Ann; 3 of 7 datagrams had been sent"},
        {"set aside, and tried again",
         [&](auto& box, auto id) {
             aside(box, id);
             EXPECT_TRUE(box->retry(id, 0, &box.problem));
         },
         waiting, waiting, "(7 datagrams)"},
        {"expired",
         [](auto& box, auto id) {
             EXPECT_TRUE(box->retry(id, unix_time(), &box.problem));
             box->expire();
         },
         set_aside, set_aside, "Ann: it expired before it could be sent; zpd outbox retry 1"},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.what);
        outbox_home_t box;
        const int64_t id = box.add(ann, "the card");
        row.steps(box, id);
        EXPECT_EQ(box.view(id).message.state, row.state);
        const std::vector<std::string> before = box.events();
        box.reopen();
        EXPECT_EQ(box.view(id).message.state, row.restarted);
        const auto events = box->events(0, 0, 0, 100'000)["events"];
        ASSERT_FALSE(events.empty());
        EXPECT_EQ(events.size(), before.size() + (row.state == cancelling ? 1 : 0)) << "nothing is told twice";
        EXPECT_THAT(events.back()["text"].get<std::string>(), EndsWith(row.last_event));
        EXPECT_TRUE(row.restarted == waiting || box.told.back() == events.back()["text"]);
        EXPECT_EQ(events.back()["message"]["id"], id);
        const bool may_go = row.restarted == waiting || row.restarted == set_aside;
        EXPECT_EQ(box->retry(id, 0, &box.problem).has_value(), may_go);
        const auto again = box->take_next();
        EXPECT_EQ(again ? again->octets : "", may_go ? "the card" : "") << "whole";
    }
}

TEST(outbox, what_cannot_be_done_is_said_and_changes_nothing) {
    outbox_home_t box;
    const int64_t id = box.add(ann, "card", 0, "token");
    EXPECT_EQ(box.add(ann, "card", 0, "token"), id);
    EXPECT_EQ(box.take(), id);
    EXPECT_TRUE(box->finish_sent(id));
    EXPECT_EQ(box.add(ann, "card", 0, "token"), id) << "it has gone";
    ASSERT_EQ(radio::set_limit("outbox-size", "1"), "");
    const int64_t last = box.add(zoe);
    EXPECT_NE(last, 0) << "what has gone takes no room";
    EXPECT_EQ(box.add(zoe), 0);
    EXPECT_EQ(box.problem.error, device::error_full);
    EXPECT_EQ(box.add(ann, "card", 0, "token"), id) << "nothing is added";
    radio::reset_limits();
    EXPECT_FALSE(box->cancel(99, &box.problem));
    EXPECT_EQ(box.problem.error, device::error_not_found);
    EXPECT_FALSE(box->retry(id, 0, &box.problem));
    EXPECT_EQ(box.problem.error, device::error_not_now);
    EXPECT_THAT(box.problem.text, HasSubstr("message 1 is sent"));
    EXPECT_THAT(box.events(), ElementsAre("queued 1", "sent 1", "queued 2"));
}

TEST(outbox, a_file_that_another_program_holds_loses_nothing) {
    outbox_home_t box;
    const int64_t aside = box.add(ann);
    EXPECT_EQ(box.take(), aside);
    EXPECT_TRUE(box->set_aside(aside, 0, 1, full, false));
    const int64_t with_driver = box.add(ann);
    EXPECT_EQ(box.take(), with_driver);
    const int64_t waits = box.add(zoe);
    const std::vector<std::string> before = box.events();
    box.lock();
    testing::internal::CaptureStderr();
    EXPECT_EQ(box.add(zoe), 0);
    EXPECT_EQ(box.problem.error, device::error_not_written);
    EXPECT_THAT(box.problem.text, HasSubstr("another program"));
    EXPECT_FALSE(box->cancel(waits, &box.problem) || box->retry(aside, 0, &box.problem));
    EXPECT_FALSE(box->finish_sent(with_driver) || box->refuse(with_driver, 1, full));
    EXPECT_EQ(box.take(), 0);
    box->note({"modem", "network lost"});
    EXPECT_TRUE(box->events(static_cast<int64_t>(before.size()), 0, 0, 1000)["events"].empty());
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_THAT(errors, HasSubstr("cannot use the outbox"));
    EXPECT_EQ(errors.find("cannot use"), errors.rfind("cannot use")) << "told once: " << errors;
    ASSERT_TRUE(box->next_due()) << "nobody else would look again";
    EXPECT_LE(*box->next_due(), unix_time() + 6);
    box.unlock();
    EXPECT_EQ(box.events(), before);
    EXPECT_EQ(box.take(), waits);
    EXPECT_TRUE(box->finish_sent(with_driver));
    EXPECT_EQ(box.view(aside).message.state, set_aside);
}

// A limit of the files' size stands for a full disk: writes end in the middle.
TEST(outbox, a_card_is_answered_for_wherever_the_room_ends) {
    std::signal(SIGXFSZ, SIG_IGN);
    outbox_home_t box;
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    std::vector<int64_t> answered;
    size_t refused = 0;
    const std::string octets(5000, 'x');
    testing::internal::CaptureStderr();
    const auto written = std::filesystem::file_size(box.file().native() + "-wal");
    for (rlim_t room = 0; room < 400'000; room += 5333) {
        const rlimit limit{written + room, usual.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        const int64_t id = box.add(ann, octets);
        setrlimit(RLIMIT_FSIZE, &usual);
        refused += id == 0 ? 1 : 0;
        if (id != 0) {
            answered.push_back(id);
        }
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cannot use the outbox"));
    EXPECT_GT(refused, 5U);
    EXPECT_GT(answered.size(), 5U);
    box.reopen();
    const auto views = box->list(0, true, 1000);
    ASSERT_EQ(views.size(), answered.size());
    for (size_t i = 0; i < views.size(); ++i) {
        EXPECT_EQ(views[i].message.id, answered[i]);
        const auto message = box->take_next();
        ASSERT_TRUE(message);
        EXPECT_EQ(message->octets, octets);
        box->note_success(ann);
    }
}

TEST(outbox, events_are_read_in_pages_and_kept_for_their_age) {
    outbox_home_t box;
    for (size_t i = 0; i < 30; ++i) {
        box->note({"modem", std::string(i == 20 ? 3000 : 100, 'x')});
    }
    std::vector<int64_t> ids;
    size_t pages = 0;
    for (bool more = true; more && pages < 40; ++pages) {
        const auto page = box->events(ids.empty() ? 0 : ids.back(), 0, 0, 2000);
        more = page["more"];
        for (const auto& event : page["events"]) {
            ids.push_back(event["id"]);
        }
    }
    ASSERT_EQ(ids.size(), 30U) << "also one that is larger than a page";
    EXPECT_EQ(ids.back() - ids.front(), 29);
    EXPECT_GT(pages, 5U);

    const int64_t aside = box.add(ann);
    EXPECT_EQ(box.take(), aside);
    EXPECT_TRUE(box->set_aside(aside, 0, 1, full, false));
    const int64_t gone = box.add(zoe);
    EXPECT_TRUE(box->cancel(gone, &box.problem));
    advance_clock(uint64_t{8} * 86'400'000);
    const int64_t waits = box.add(zoe);
    box.reopen();
    box->forget();
    EXPECT_THAT(box.events(), ElementsAre("queued " + std::to_string(waits)));
    EXPECT_EQ(box->events(0, unix_time() + 10, 0, 1000)["events"].size(), 0U);
    EXPECT_EQ(box->list(0, true, 10).size(), 2U) << "what was set aside waits for a person";
    EXPECT_GT(box->events(0, 0, 0, 1000)["events"][0]["id"], ids.back() + 3) << "no id is given twice";
}

TEST(outbox, who_waits_is_woken_by_each_change) {
    outbox_home_t box;
    const int64_t id = box.add(ann);
    const auto version = [&] { return box.view(id).version; };
    const std::function<void()> changes[] = {
        [&] { EXPECT_EQ(box.take(), id); },
        [&] { box->note_progress(id, 1, 240); },
        [&] { EXPECT_TRUE(box->refuse(id, 1, full)); },
        [&] { EXPECT_TRUE(box->retry(id, 0, &box.problem)); },
        [&] { EXPECT_EQ(box.take(), id); },
        [&] { EXPECT_TRUE(box->refuse(id, 1, full)); },
        [&] { EXPECT_TRUE(box->cancel(id, &box.problem)); },
        [&] { box->end_waits(); },
    };
    for (const auto& change : changes) {
        const uint64_t known = version();
        const auto began = base::tick64();
        auto watched = std::async(std::launch::async, [&] { return box->watch(id, known, 9000, &box.problem); });
        change();
        EXPECT_TRUE(watched.get());
        EXPECT_LT(base::tick64() - began, 5000U);
    }
    EXPECT_EQ(box.view(id).message.state, cancelled);
    EXPECT_EQ(box->events(100, 0, 9000, 1000)["events"].size(), 0U) << "at the end nobody waits";
}

}  // namespace
