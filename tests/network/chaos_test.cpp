// Faults by chance: the same for the same seed, each undone, and no message is lost for ever.
#include "network/chaos.h"

#include <set>

#include "base/clock.h"
#include "tests/network/host.h"

namespace network {
namespace {

std::vector<std::string> plan_of(chaos_t chaos, const std::string& number, size_t count) {
    std::vector<std::string> lines;
    while (lines.size() < count) {
        const planned_order_t order = chaos.next().value();
        if (order.number == number) {
            lines.push_back(to_text(order));
        }
    }
    return lines;
}

// On every machine.
TEST(chaos, follows_from_seed_and_number_alone) {
    const std::vector<std::string> lines = plan_of(chaos_t(42, {alice}), alice, 500);
    EXPECT_EQ(std::vector(lines.begin(), lines.begin() + 4),
              (std::vector<std::string>{"14s +491700000001 late-prompt=5000", "22s +491700000001 late-prompt=0",
                                        "45s +491700000001 reorder=2", "55s +491700000001 reorder=0"}));
    EXPECT_EQ(plan_of(chaos_t(42, {bob, alice}), alice, 500), lines);
    EXPECT_NE(plan_of(chaos_t(43, {alice}), alice, 500), lines);
}

TEST(chaos, spares_what_is_not_its_own) {
    for (const std::string& line : plan_of(chaos_t(7, {alice, bob}, {{alice, {"silent", "hang-up"}}}), alice, 500)) {
        EXPECT_EQ(line.find("silent"), std::string::npos) << line;
        EXPECT_EQ(line.find("hang-up"), std::string::npos) << line;
    }
}

using chaos_test = network_test;
TEST_F(chaos_test, every_fault_is_undone) {
    chaos_t chaos(1, {alice});
    std::set<std::string> struck;
    uint64_t now = 0;
    for (int strikes = 0; strikes < 400;) {
        const planned_order_t order = chaos.next().value();
        ASSERT_GE(order.at, now);
        base::advance_clock(order.at - now);
        now = order.at;
        network_->faults_in_force(alice);  // a round: what ends by itself has ended
        const std::vector<std::string> before = network_->faults_in_force(alice);
        set_fault(alice, order.faults.at(0));
        const std::vector<std::string> after = network_->faults_in_force(alice);
        EXPECT_EQ(before.size() + after.size(), 1U) << to_text(order) << ": one at a time, and then none";
        strikes += after.empty() ? 0 : 1;
        struck.insert(order.faults[0].substr(0, order.faults[0].find('=')));
    }
    EXPECT_EQ(struck.size(), 16U) << "each comes sooner or later";
}

class chaos_by_seed_test : public network_test, public testing::WithParamInterface<uint64_t> {
  protected:
    /// With the network beside it, which a busy machine may keep back.
    void pass_time(uint64_t milliseconds) const {
        base::advance_clock(milliseconds);
        network_->faults_in_force(alice);
    }

    /// As a program does that tries again until it is told that its message was sent. False after some minutes.
    bool submit_in_the_end(const air::submit_t& message) const {
        const air::octets_t octets = air::encode(message).value();
        for (int attempts = 0; attempts < 100; ++attempts) {
            const base::descriptor_t tty(
                open(network_->link(alice).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
            if (ask(tty, "\x1b\rATE0\r", "OK\r\n") &&
                ask(tty, "AT+CMGS=" + std::to_string(octets.size()) + "\r", "> ") &&
                ask(tty, "00" + base::to_hex(octets) + "\x1a", "+CMGS: ")) {
                return true;
            }
            pass_time(3'000);
        }
        return false;
    }

  private:
    /// Whether this is answered within 20 s, which pass while nothing comes.
    bool ask(const base::descriptor_t& tty, const std::string& text, const std::string& wanted) const {
        std::string reply;
        bool hung_up = !tty || write(tty.get(), text.data(), text.size()) < 0;
        for (int silence = 0; silence < 20 && !hung_up && reply.find(wanted) == std::string::npos;) {
            pollfd wait = {tty.get(), POLLIN, 0};
            if (poll(&wait, 1, 10) == 1) {
                char octets[4096];
                const ssize_t count = read(tty.get(), octets, sizeof octets);
                reply.append(octets, static_cast<size_t>(std::max<ssize_t>(count, 0)));
                hung_up = count <= 0;
            } else {
                pass_time(1'000);
                ++silence;
            }
        }
        return reply.find(wanted) != std::string::npos;
    }
};

TEST_P(chaos_by_seed_test, messages_arrive_whatever_comes) {
    constexpr uint64_t lasting = 900'000;
    constexpr uint8_t many = 15;
    const uint64_t begun = base::tick64();
    std::atomic<unsigned> struck = 0;
    network_->follow(
        [chaos = chaos_t(GetParam(), {alice, bob})]() mutable {
            const auto order = chaos.next();
            return order && order->at < lasting ? order : std::nullopt;
        },
        [&](const planned_order_t&, const std::string& error) {
            EXPECT_EQ(error, "");
            ++struck;
        });
    std::set<uint8_t> submitted;
    for (uint8_t id = 1; id <= many; ++id) {
        EXPECT_TRUE(submit_in_the_end(submit_to(bob, {id}))) << "message " << int{id};
        submitted.insert(id);
        pass_time(begun + lasting * id / many - std::min(begun + lasting * id / many, base::tick64()));
    }
    set_fault(alice, "clear");
    set_fault(bob, "clear");
    EXPECT_GT(struck, 30U);
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    const auto to = host(bob);
    to->send("AT+CMGL=4\r");
    const std::string stored = to->read_until("\r\nOK\r\n");
    std::set<uint8_t> arrived;
    for (size_t at = 0; (at = stored.find("+CMGL:", at)) != std::string::npos; ++at) {
        arrived.insert(delivered(stored.substr(at)).user_data.at(0));
    }
    EXPECT_EQ(arrived, submitted);
}

INSTANTIATE_TEST_SUITE_P(seed, chaos_by_seed_test, testing::Values(1, 2, 3, 4, 5));

}  // namespace
}  // namespace network
