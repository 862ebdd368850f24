// A service that ends and is killed with cards in its outbox; and how long a number that refuses holds up others.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "tests/system/outbox_client.h"
#include "tests/system/phones.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

TEST(outbox_restart, what_is_left_is_told_and_sent_by_the_next_service) {
    const folder_t folder;
    const network_t network(folder);
    phone_t receiver(folder, "bob", network.modem(bob));
    phone_t sender(folder, "alice", network.modem(alice));
    receiver.start({"--activate", "--set", "better-datagrams=2"});
    ASSERT_TRUE(receiver.ready());
    const outbox_client_t outbox(sender.device());
    const auto start = [&] {
        sender.start();
        ASSERT_TRUE(sender.ready()) << sender.serve().errors();
    };
    EXPECT_EQ(zpd({"fault", "--dir", folder / "modems", alice, "late-results=50"}).status, 0);
    const std::string cards[] = {std::string(40 * 128, '1'), std::string(300, '2')};
    start();
    const uint64_t ids[] = {outbox.add(cards[0], bob), outbox.add(cards[1], bob)};
    ASSERT_TRUE(eventually([&] { return outbox.message(ids[0])["datagrams"]["sent"] > 3; }));
    sender.serve().signal(SIGKILL);
    sender.serve().wait();
    start();
    EXPECT_EQ(outbox.message(ids[0])["datagrams"]["sent"], 0) << "it goes whole";
    sender.serve().signal(SIGTERM);
    EXPECT_EQ(sender.serve().wait(), 0);
    EXPECT_THAT(sender.serve().output(), HasSubstr("\n2 cards wait in the outbox and are sent at the next start\n"));
    start();
    EXPECT_TRUE(outbox.becomes(ids[0], "sent") && outbox.becomes(ids[1], "sent"));
    EXPECT_TRUE(eventually([&] { return stored_cards(receiver).size() == 2; }));
    for (const auto& [card, copies] : stored_cards(receiver)) {
        EXPECT_TRUE(card == cards[0] || card == cards[1]) << "no whole card";
        EXPECT_LE(copies, 2);
    }
    std::vector<std::string> kinds;
    for (const auto& event : outbox.events()) {
        EXPECT_EQ(event["id"], kinds.size() + 1) << "none is missing";
        kinds.push_back(event["kind"]);
    }
    EXPECT_THAT(kinds, testing::ElementsAre("queued", "queued", "sent", "sent"));
    sender.serve().signal(SIGTERM);
    EXPECT_EQ(sender.serve().wait(), 0);
    EXPECT_EQ(sender.serve().output().find("wait in the outbox"), std::string::npos);
}

TEST(outbox_restart, a_leased_card_goes_as_long_as_its_lease_is_renewed_and_the_service_runs) {
    const folder_t folder;
    const network_t network(folder);
    phone_t receiver(folder, "bob", network.modem(bob));
    phone_t sender(folder, "alice", network.modem(alice));
    receiver.start({"--activate", "--set", "better-datagrams=2"});
    sender.start();
    ASSERT_TRUE(receiver.ready() && sender.ready()) << sender.serve().errors();
    const outbox_client_t outbox(sender.device());
    EXPECT_TRUE(outbox.becomes(outbox.add("first", bob), "sent"));
    EXPECT_EQ(zpd({"fault", "--dir", folder / "modems", alice, "late-results=100"}).status, 0);
    EXPECT_EQ(outbox.status()["number"], alice);
    const int64_t room = outbox.status()["outbox"]["room"];

    const std::string renewed(40 * 128, 'r');
    const std::string left_alone(60 * 128, 'l');
    const uint64_t ids[] = {outbox.add_leased(renewed, bob, "1", 2), outbox.add_leased(left_alone, bob, "2", 6),
                            outbox.add_leased("behind it", bob, "3", 2)};
    EXPECT_EQ(outbox.status()["outbox"]["room"], room - 3);
    ASSERT_TRUE(eventually([&] {
        EXPECT_THAT(outbox.renew(2, {ids[0]}), testing::IsEmpty());
        return outbox.message(ids[0])["datagrams"]["sent"] > 30;
    }));
    EXPECT_TRUE(outbox.becomes(ids[0], "sent"));
    EXPECT_THAT(outbox.message(ids[2])["reason"]["text"], HasSubstr("its lease ended")) << "it waited too long";
    EXPECT_TRUE(outbox.becomes(ids[1], "cancelled"));
    EXPECT_THAT(outbox.events().back()["text"], HasSubstr("of 60 datagrams had been sent; its lease ended"));
    EXPECT_THAT(outbox.renew(2, {ids[0], ids[1], 99}), testing::ElementsAre(ids[0], ids[1], 99));

    const uint64_t lost = outbox.add_leased(left_alone, bob, "2", 600);
    EXPECT_NE(lost, ids[1]) << "the token was free";
    ASSERT_TRUE(eventually([&] { return outbox.message(lost)["datagrams"]["sent"] > 3; }));
    sender.serve().signal(SIGKILL);
    sender.serve().wait();
    sender.start();
    ASSERT_TRUE(sender.ready()) << sender.serve().errors();
    EXPECT_EQ(outbox.message(lost)["reason"]["text"], "its lease ended with the service");
    EXPECT_EQ(outbox.left(), 0U);
    EXPECT_TRUE(outbox.becomes(outbox.add_leased("last", bob, "2", 60), "sent"));
    EXPECT_TRUE(eventually([&] { return stored_cards(receiver).contains("last"); }));
    const auto stored = stored_cards(receiver);
    EXPECT_TRUE(stored.contains(renewed) && !stored.contains(left_alone) && !stored.contains("behind it"));
}

/// ZPD_KILLS of them, on several phones at once: the first card after a start waits for ten seconds. Half of the kills
/// come as cards are handed in, the others as they are sent.
TEST(outbox_kill, no_card_that_was_answered_for_is_lost_by_a_kill) {
    const int kills = told_number("ZPD_KILLS", 20);
    constexpr int senders = 10;
    const folder_t folder;
    std::string numbers = bob;
    for (int i = 0; i < senders; ++i) {
        numbers += fmt::format(",+49170000000{}", i);
    }
    const network_t network(folder, numbers);
    phone_t receiver(folder, "bob", network.modem(bob));
    receiver.start({"--activate", "--set", "better-datagrams=2"});
    ASSERT_TRUE(receiver.ready()) << receiver.serve().errors();
    std::mutex mutex;
    std::map<std::string, bool> cards;  // whether it was answered for
    const auto send_and_kill = [&](int index) {
        std::mt19937 random(static_cast<unsigned>(index));
        const std::string number = fmt::format("+49170000000{}", index);
        EXPECT_EQ(zpd({"fault", "--dir", folder / "modems", number, "late-results=20"}).status, 0);
        phone_t sender(folder, fmt::format("sender{}", index), network.modem(number));
        const outbox_client_t outbox(sender.device());
        for (int run = index; run < kills; run += senders) {
            sender.start();
            ASSERT_TRUE(sender.ready()) << sender.serve().errors();
            const bool at_once = random() % 2 == 0;
            const auto end = std::chrono::steady_clock::now() +
                             std::chrono::microseconds(at_once ? random() % 30'000 : 9'900'000 + random() % 700'000);
            std::thread killer([&] {
                std::this_thread::sleep_until(end);
                sender.serve().signal(SIGKILL);
            });
            for (int i = 0; i < (at_once ? 20 : 2); ++i) {
                const std::string card = fmt::format("card {} {} {}", run, i, std::string(random() % 1500, '.'));
                const bool answered = outbox.try_add(card, bob).has_value();
                const std::lock_guard lock(mutex);
                cards[card] = answered;
                if (!answered) {
                    break;
                }
            }
            killer.join();
            sender.serve().wait();
        }
        sender.start();
        ASSERT_TRUE(sender.ready()) << sender.serve().errors();
        EXPECT_TRUE(eventually([&] { return outbox.left() == 0; }, 200s)) << outbox.left() << " left";
    };
    std::vector<std::thread> threads;
    for (int index = 0; index < senders; ++index) {
        threads.emplace_back(send_and_kill, index);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const auto lost = [&] {
        const auto stored = stored_cards(receiver);
        return std::ranges::count_if(cards,
                                     [&](const auto& card) { return card.second && !stored.contains(card.first); });
    };
    EXPECT_TRUE(eventually([&] { return lost() == 0; })) << lost() << " lost";
    int twice = 0;
    for (const auto& [card, copies] : stored_cards(receiver)) {
        EXPECT_TRUE(cards.contains(card)) << "nobody's: " << card;
        twice += copies > 1 ? 1 : 0;
    }
    const auto answered = std::ranges::count_if(cards, [](const auto& card) { return card.second; });
    std::printf("%d kills: %zu cards answered for, %zu lost, %zu stored, %d of them more than once\n", kills,
                static_cast<size_t>(answered), static_cast<size_t>(lost()), stored_cards(receiver).size(), twice);
}

/// ZPD_TURNS cards to each of two numbers, by turns, against those to one of them alone.
TEST(outbox_pace, a_number_that_refuses_takes_no_more_than_a_fifth_and_a_minute_of_the_others) {
    const int turns = told_number("ZPD_TURNS", 40);
    const folder_t folder;
    const network_t network(folder);
    phone_t sender(folder, "alice", network.modem(alice));
    sender.start();
    ASSERT_TRUE(sender.ready()) << sender.serve().errors();
    const outbox_client_t outbox(sender.device());
    for (const char* const order : {"late-results=20", "refuse-to=+447700900999:1"}) {
        EXPECT_EQ(zpd({"fault", "--dir", folder / "modems", alice, order}).status, 0);
    }
    EXPECT_TRUE(outbox.becomes(outbox.add("first", bob), "sent"));
    const auto seconds_of = [&](bool by_turns) {
        const auto begin = std::chrono::steady_clock::now();
        std::vector<uint64_t> ids;
        for (int i = 0; i < turns; ++i) {
            if (by_turns) {
                outbox.add(fmt::format("refused {}", i), "+447700900999");
            }
            ids.push_back(outbox.add(fmt::format("good {} {} {}", i, by_turns, std::string(300, '.')), bob));
        }
        for (const uint64_t id : ids) {
            EXPECT_TRUE(outbox.becomes(id, "sent", 200s)) << outbox.message(id);
        }
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    const double alone = seconds_of(false);
    const double by_turns = seconds_of(true);
    EXPECT_LE(by_turns, 1.2 * alone + (turns < 100 ? 15 : 60));
    std::printf("%d turns: the good cards take %.1f s alone, %.1f s with as many refused ones\n", turns, alone,
                by_turns);
}

}  // namespace
