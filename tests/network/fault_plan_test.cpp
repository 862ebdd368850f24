// Faults on a timetable: how it is read, and when it is carried out.
#include "network/fault_plan.h"

#include <fstream>
#include <mutex>

#include "base/clock.h"
#include "tests/network/host.h"

namespace network {
namespace {

class fault_plan_test : public network_test {
  protected:
    std::vector<planned_order_t> read(const std::string& text) {
        std::ofstream(file_) << text;
        error_.clear();
        return read_fault_plan(file_, {alice, bob}, &error_);
    }

    const std::filesystem::path file_ = directory_ / "plan";
};

TEST_F(fault_plan_test, lines_stand_in_any_order_and_are_written_as_they_are_read) {
    const std::vector<planned_order_t> plan = read(
        "# nothing yet\n"
        "\n"
        "  1m30s 491700000002 clear  # healed\r\n"
        "1500ms\t* 'restart=2000:+CPIN: SIM PIN' chatter=it\\'s\\ \\\\ duplicate\n"
        "0s +491700000001 ussd=*100# refuse-to=+12025550177:1\n"
        "90s +491700000001 silent");
    EXPECT_EQ(error_, "");
    const std::vector<planned_order_t> expected = {
        {0, alice, {"ussd=*100#", "refuse-to=+12025550177:1"}},
        {1'500, "*", {"restart=2000:+CPIN: SIM PIN", "chatter=it's \\", "duplicate"}},
        {90'000, "491700000002", {"clear"}},
        {90'000, alice, {"silent"}},
    };
    EXPECT_EQ(plan, expected);
    std::string written;
    for (const planned_order_t& order : plan) {
        written += to_text(order) + "\n";
    }
    EXPECT_EQ(read(written), expected) << written;
}

TEST_F(fault_plan_test, what_is_wrong_is_told_by_its_line) {
    const std::string lines[][2] = {
        {"90 * silent", "\"90\" is no time"},
        {"1s90m * silent", "is no time"},
        {"3651d * silent", "is no time"},
        {"-1s * silent", "is no time"},
        {"90s", "what is wanted is TIME NUMBER FAULT"},
        {"90s *", "what is wanted is TIME NUMBER FAULT"},
        {"90s +4917 silent", "the network has no phone +4917"},
        {"90s * silent loud", "there is no fault \"loud\""},
        {"90s * refuse=x", "\"refuse=x\" is no refuse"},
        {"90s * 'chatter=RING", "a quote has no end"},
    };
    for (const auto& [line, problem] : lines) {
        EXPECT_TRUE(read("1s * clear\n" + line + "\n2s * clear\n").empty());
        EXPECT_TRUE(error_.starts_with(file_.string() + ":2: ")) << error_;
        EXPECT_NE(error_.find(problem), std::string::npos) << error_;
        EXPECT_TRUE(error_.ends_with(": " + line)) << error_;
    }
    read_fault_plan(directory_ / "none", {}, &error_);
    EXPECT_EQ(error_, "cannot read " + (directory_ / "none").string() + ": No such file or directory");
}

TEST_F(fault_plan_test, orders_are_carried_out_and_told_when_their_time_has_come) {
    std::mutex mutex;
    std::string told;
    network_->follow(orders_of(read("60s * silent\n120s +491700000001 silent=off reorder=2\n0s +491700000002 hang-up")),
                     [&](const planned_order_t& order, const std::string& error) {
                         const std::lock_guard lock(mutex);
                         told += to_text(order) + error + "\n";
                     });
    const auto state = [&] {
        network_->faults_in_force(alice);  // a round
        const std::vector<std::string> of_alice = network_->faults_in_force(alice);
        const std::vector<std::string> of_bob = network_->faults_in_force(bob);
        const std::lock_guard lock(mutex);
        return std::tuple(of_alice, of_bob, told);
    };
    using orders_t = std::vector<std::string>;
    std::string expected = "0s +491700000002 hang-up\n";
    EXPECT_EQ(state(), std::tuple(orders_t{}, orders_t{"hang-up"}, expected));
    base::advance_clock(60'000);
    expected += "60s * silent\n";
    EXPECT_EQ(state(), std::tuple(orders_t{"silent"}, (orders_t{"hang-up", "silent"}), expected));
    base::advance_clock(60'000);
    expected += "120s +491700000001 silent=off reorder=2\n";
    EXPECT_EQ(state(), std::tuple(orders_t{"reorder=2"}, (orders_t{"hang-up", "silent"}), expected));
}

}  // namespace
}  // namespace network
