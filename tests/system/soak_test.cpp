// Two phones that send each other cards while their modems misbehave: for some seconds, or ZPD_SOAK of them. And
// senders whose services are killed.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "client/client.h"
#include "com/zpd/zpd_ioctl.h"
#include "tests/system/outbox_client.h"
#include "tests/system/phones.h"

namespace {

using namespace std::chrono_literals;

size_t resident_kilobytes(phone_t& phone) {
    std::ifstream status(fmt::format("/proc/{}/status", phone.serve().id()));
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stoul(line.substr(6));
        }
    }
    return 0;
}
size_t descriptors(phone_t& phone) {
    const std::filesystem::directory_iterator open(fmt::format("/proc/{}/fd", phone.serve().id()));
    return static_cast<size_t>(std::distance(begin(open), end(open)));
}

/// Sends two cards a second, as a fast modem might, until it is told to end: its references come round in two minutes.
class sender_t {
  public:
    sender_t(const phone_t& phone, std::string name, std::string to)
        : name_(std::move(name)), to_(std::move(to)), client_(std::move(*client::client_t::connect(phone.device()))) {}

    void run(const std::atomic<bool>& ends) {
        std::mt19937 random(7);  // NOLINT(bugprone-random-generator-seed): the same cards each time
        for (int number = 0; !ends; ++number) {
            const std::string card = fmt::format("{} {} {}", name_, number, std::string(random() % 500, '.'));
            const auto id = client_.send({.octets = card}, to_);
            ASSERT_TRUE(id) << id.failure().text;
            cards_.push_back(card);
            open_.push_back(*id);
            std::this_thread::sleep_for(500ms);
            wait_for_room(3);
        }
        wait_for_room(0);
    }
    const std::vector<std::string>& cards() const { return cards_; }

  private:
    void wait_for_room(size_t most) {
        while (open_.size() > most) {
            std::erase_if(open_, [&](uint32_t id) {
                const auto statuses = client_.status(id);
                const bool sent = statuses && std::ranges::count(*statuses, ZPD_STATUS_SENT) ==
                                                  static_cast<std::ptrdiff_t>(statuses->size());
                return sent && client_.close(id);
            });
            std::this_thread::sleep_for(5ms);
        }
    }

    std::string name_, to_;
    client::client_t client_;
    std::vector<std::string> cards_;
    std::vector<uint32_t> open_;
};

TEST(soak, cards_both_ways_under_faults_arrive_once) {
    const int seconds = told_number("ZPD_SOAK", 5);
    const folder_t folder;
    const network_t network(folder);
    phone_t phones[] = {{folder, "alice", network.modem(alice)}, {folder, "bob", network.modem(bob)}};
    for (phone_t& phone : phones) {
        phone.start({"--activate", "--set", "submission=10"});
    }
    for (phone_t& phone : phones) {
        ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    }
    const auto fault = [&](const std::string& number, const std::string& order) {
        EXPECT_EQ(zpd({"fault", "--dir", folder / "modems", number, order}).status, 0) << order;
    };
    std::atomic<bool> ends = false;
    sender_t senders[] = {{phones[0], "from alice", bob}, {phones[1], "from bob", alice}};
    std::thread first([&] { senders[0].run(ends); });
    std::thread second([&] { senders[1].run(ends); });
    const char* const faults[] = {
        "refuse=38x2", "lose-results=1",        "late-results=200", "duplicate",   "reorder=3", "both-ways",
        "unannounced", "wrong-index",           "fail-deletes=2",   "hang-up=300", "chatter",   "single-octets",
        "delay=500",   "registration=searching"};
    std::mt19937 random(8);  // NOLINT(bugprone-random-generator-seed): the same faults each time
    size_t kilobytes = 0;
    size_t open = 0;
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; std::chrono::steady_clock::now() - begin < std::chrono::seconds(seconds); ++round) {
        const std::string& number = random() % 2 == 0 ? alice : bob;
        fault(number, faults[random() % std::size(faults)]);
        std::this_thread::sleep_for(std::chrono::milliseconds(500 + random() % 1500));
        fault(number, "clear");
        if (round == 0 || round == 10) {
            kilobytes = resident_kilobytes(phones[0]) + resident_kilobytes(phones[1]);
            open = descriptors(phones[0]) + descriptors(phones[1]);
        }
    }
    for (const std::string& number : {alice, bob}) {
        fault(number, "clear");
    }
    ends = true;
    first.join();
    second.join();
    int doubled = 0;
    for (size_t side : {0, 1}) {
        const phone_t& receiver = phones[1 - side];
        const auto missing = [&] {
            const auto stored = stored_cards(receiver);
            return std::ranges::count_if(senders[side].cards(),
                                         [&](const std::string& card) { return !stored.contains(card); });
        };
        EXPECT_TRUE(eventually([&] { return missing() == 0; }, 400s)) << missing() << " lost";
        for (const auto& [card, copies] : stored_cards(receiver)) {
            EXPECT_NE(std::ranges::count(senders[side].cards(), card), 0) << "nobody's card: " << card;
            doubled += copies > 1 ? 1 : 0;
        }
    }
    EXPECT_EQ(doubled, 0);
    std::printf("%d s, %zu cards, 0 lost, %d doubled; memory %zu -> %zu KB, descriptors %zu -> %zu\n", seconds,
                senders[0].cards().size() + senders[1].cards().size(), doubled, kilobytes,
                resident_kilobytes(phones[0]) + resident_kilobytes(phones[1]), open,
                descriptors(phones[0]) + descriptors(phones[1]));
}

/// Cards both ways through the outboxes of services that are killed every 20 seconds: each that was answered for
/// arrives.
TEST(soak, services_that_are_killed_lose_no_card_either_way) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(told_number("ZPD_SOAK", 25));
    const folder_t folder;
    const network_t network(folder);
    phone_t phones[] = {{folder, "alice", network.modem(alice)}, {folder, "bob", network.modem(bob)}};
    const std::string numbers[] = {alice, bob};
    std::vector<std::string> cards[2];  // that each side answered for
    const auto send = [&](size_t side) {
        std::mt19937 random(static_cast<unsigned>(side));
        const outbox_client_t outbox(phones[side].device());
        for (int number = 0; std::chrono::steady_clock::now() < end; ++number) {
            const std::string card = fmt::format("{} {} {}", side, number, std::string(random() % 900, '.'));
            if (outbox.try_add(card, numbers[1 - side])) {
                cards[side].push_back(card);
            }
            std::this_thread::sleep_for(300ms);
        }
    };
    const auto start = [](phone_t& phone) {
        phone.start({"--activate", "--set", "better-datagrams=2"});
        EXPECT_TRUE(phone.ready()) << phone.serve().errors();
    };
    for (const std::string& number : numbers) {
        EXPECT_EQ(zpd({"fault", "--dir", folder / "modems", number, "late-results=30"}).status, 0);
    }
    std::ranges::for_each(phones, start);
    std::thread senders[] = {std::thread(send, 0), std::thread(send, 1)};
    std::mt19937 random(9);  // NOLINT(bugprone-random-generator-seed): the same moments each time
    int kills = 0;
    while (std::chrono::steady_clock::now() + 10s < end) {
        for (phone_t& phone : phones) {
            std::this_thread::sleep_for(std::chrono::milliseconds(6000 + random() % 8000));
            phone.serve().signal(SIGKILL);
            phone.serve().wait();
            ++kills;
            start(phone);
        }
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    size_t doubled = 0;
    for (const size_t side : {0, 1}) {
        const auto lost = [&] {
            const auto stored = stored_cards(phones[1 - side]);
            return std::ranges::count_if(cards[side], [&](const auto& card) { return !stored.contains(card); });
        };
        // A card that a kill had sent again in part waits for `better-datagrams`, two minutes.
        EXPECT_TRUE(eventually([&] { return lost() == 0; }, 180s)) << lost() << " lost";
        for (const auto& [card, copies] : stored_cards(phones[1 - side])) {
            doubled += copies > 1 ? 1 : 0;
        }
    }
    std::printf("%d kills, %zu cards, 0 lost, %zu more than once\n", kills, cards[0].size() + cards[1].size(), doubled);
}

}  // namespace
