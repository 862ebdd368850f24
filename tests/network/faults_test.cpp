// The faults by name: what each makes a host see.
#include <fmt/format.h>

#include <set>

#include "base/clock.h"
#include "network/fault_table.h"
#include "tests/network/host.h"

namespace network {
namespace {

class faults_test : public network_test {
  protected:
    /// Alice sends Bob a message of each octet.
    void send(const air::octets_t& octets) {
        const auto from = host(alice);
        for (const uint8_t octet : octets) {
            submit(*from, submit_to(bob, {octet}));
            expect_ok(from->read_until("OK\r\n"), "submission");
        }
    }
    /// The octets of all that lies on Bob's modem.
    air::octets_t stored(host_t& host) {
        air::octets_t octets;
        host.send("AT+CMGL=4\r");
        const std::string reply = host.read_until("\r\nOK\r\n");
        for (size_t at = 0; (at = reply.find("+CMGL:", at)) != std::string::npos; ++at) {
            octets.push_back(delivered(reply.substr(at)).user_data.at(0));
        }
        return octets;
    }
};

TEST_F(faults_test, deliveries_come_twice_in_reverse_or_late) {
    const auto to = host(bob);
    set_fault(bob, "reorder=3");
    send({1, 2, 3, 4});
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 3));
    EXPECT_EQ(stored(*to), (air::octets_t{3, 2, 1})) << "the fourth waits for its like";
    set_fault(bob, "clear");
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    set_fault(bob, "duplicate");
    send({5});
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 6));
    EXPECT_EQ(stored(*to), (air::octets_t{3, 2, 1, 4, 5, 5}));
    set_fault(bob, "clear");
    set_fault(bob, "delay=3600000");
    send({6});
    EXPECT_EQ(stored(*to).size(), 6U);
    base::advance_clock(3'600'000);
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    EXPECT_EQ(stored(*to).back(), 6);
}

TEST_F(faults_test, deliveries_are_spaced) {
    const auto to = host(bob);
    set_fault(bob, "delivery-gap=3600000");
    send({1, 2, 3});
    EXPECT_EQ(stored(*to), air::octets_t{1});
    base::advance_clock(3'599'000);
    EXPECT_EQ(stored(*to), air::octets_t{1});
    base::advance_clock(1'000);
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 2));
    EXPECT_EQ(stored(*to), (air::octets_t{1, 2}));
    set_fault(bob, "delivery-gap=0");
    base::advance_clock(3'600'000);
    send({4, 5});
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    EXPECT_EQ(stored(*to), (air::octets_t{1, 2, 3, 4, 5}));
}

// The network's thread sleeps until the next one is due, which it may be by the time that it goes to sleep.
TEST_F(faults_test, spaced_deliveries_never_stop) {
    const auto to = host(bob);
    set_fault(bob, "storage=1000");
    set_fault(bob, "delivery-gap=1");
    constexpr size_t many = 500;
    send(air::octets_t(many, 1));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, many));
}

TEST_F(faults_test, arrivals_are_told_wrongly_twice_or_not_at_all) {
    const auto to = host(bob, {"AT+CNMI=2,1"});
    set_fault(bob, "wrong-index");
    send({1});
    to->expect("", "\r\n+CMTI: \"ME\",-1\r\n");
    set_fault(bob, "clear");
    set_fault(bob, "unannounced");
    send({2});
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 2));
    to->expect_nothing();
    set_fault(bob, "clear");
    set_fault(bob, "both-ways");
    send({3});
    to->expect("", "\r\n+CMTI: \"ME\",3\r\n\r\n+CMT: ,20\r\n");
    EXPECT_EQ(delivered("\r\n" + to->read_until("\r\n")).user_data, air::octets_t{3});
    set_fault(bob, "fail-deletes=2");
    for (const std::string result : {"+CMS ERROR: 320", "+CMS ERROR: 320", "OK"}) {
        to->expect("AT+CMGD=2\r", "\r\n" + result + "\r\n");
    }
    EXPECT_EQ(stored(*to), (air::octets_t{1, 3}));
}

// What differs from the usual PDU: so many octets, so many behind it, and <length>.
TEST_F(faults_test, pdus_are_written_oddly) {
    const std::string odd_number = "+4917000000020";
    ASSERT_TRUE(network_->attach(odd_number, &error_)) << error_;
    const auto from = host(odd_number);
    submit(*from, submit_to(bob, {7}));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    const auto to = host(bob);
    struct told_t {
        int length;
        air::octets_t pdu;
    };
    const auto told = [&](const std::string& form) {
        set_fault(bob, "pdu=" + form);
        to->send("AT+CMGR=1\r");
        to->read_until(",,");
        const std::string length = to->read_until("\r\n");
        const std::string pdu = to->read_until("\r\n");
        to->read_until("OK\r\n");
        return told_t{std::stoi(length), base::from_hex(pdu.substr(0, pdu.size() - 2)).value()};
    };
    struct row_t {
        const char* form;
        int octets, behind, length;
    };
    const told_t usual = told("usual");
    for (const row_t& row :
         {row_t{"spare-bits", 1, 0, 0}, row_t{"even-address", 1, 0, 0}, row_t{"no-clock", 2, 0, 0},
          row_t{"padded", 0, 4, 4}, row_t{"length-over", 0, 0, 1}, row_t{"length-under", 0, 0, -1}}) {
        const told_t odd = told(row.form);
        EXPECT_EQ(odd.pdu.size(), usual.pdu.size() + row.behind) << row.form;
        EXPECT_EQ(odd.length, usual.length + row.length) << row.form;
        int differing = 0;
        for (size_t i = 0; i < usual.pdu.size(); ++i) {
            differing += odd.pdu.at(i) != usual.pdu[i] ? 1 : 0;
        }
        EXPECT_EQ(differing, row.octets) << row.form;
    }
}

TEST_F(faults_test, a_full_memory_is_told_once) {
    const auto to = host(bob, {"AT+CNMI=2,1"});
    set_fault(bob, "storage=1");
    set_fault(bob, "memory-full");
    send({1, 2, 3});
    to->expect("", "\r\n+CMTI: \"ME\",1\r\n\r\n^SMMEMFULL: \"ME\"\r\n");
    to->expect("AT+CMGD=1\r", "\r\nOK\r\n\r\n+CMTI: \"ME\",1\r\n\r\n^SMMEMFULL: \"ME\"\r\n");
    to->expect_nothing();
}

TEST_F(faults_test, results_and_prompts_come_late) {
    const auto from = host(alice);
    set_fault(alice, "late-results=60000");
    submit(*from, submit_to(bob, {1}));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    from->expect_nothing();
    base::advance_clock(60'000);
    EXPECT_EQ(from->read_until("OK\r\n"), sent(0));
    set_fault(alice, "clear");
    set_fault(alice, "late-prompt=60000");
    from->expect("ATE1\r", "\r\nOK\r\n");
    from->expect("AT+CMGS=14\r\x1b", "AT+CMGS=14\r");  // the escape is not taken before the prompt
    base::advance_clock(60'000);
    from->expect("AT\r", "\r\n> \x1b\r\nOK\r\nAT\r\r\nOK\r\n");
}

TEST_F(faults_test, a_modem_returns_under_another_name) {
    const auto tty = std::filesystem::read_symlink(network_->link(bob));
    const auto from = host(bob);
    set_fault(bob, "hang-up=5000");
    EXPECT_EQ(from->read_until("OK"), "");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(network_->link(bob))));
    base::advance_clock(5'000);
    set_fault(bob, "return");  // a round: it is there
    EXPECT_NE(std::filesystem::read_symlink(network_->link(bob)), tty);
    host(bob)->expect_nothing();
}

// 3GPP TS 23.040 9.2.3.25: TP-RD, with the TP-MR that the host gives.
TEST_F(faults_test, a_repetition_is_rejected_on_demand) {
    const auto from = host(alice);
    air::submit_t message = submit_to(bob, {1});
    message.message_reference = 77;
    submit(*from, message);
    EXPECT_EQ(from->read_until("OK\r\n"), sent(77));
    message.reject_duplicates = true;
    submit(*from, message);
    from->expect("", "\r\n+CMS ERROR: 197\r\n");
    message.message_reference = 78;
    submit(*from, message);
    EXPECT_EQ(from->read_until("OK\r\n"), sent(78));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 2));
}

// 3GPP TS 27.005 4.4: what a host was handed directly and does not want itself, it gives back.
TEST_F(faults_test, a_received_message_is_written_back) {
    const auto to = host(bob, {"AT+CNMI=2,2"});
    send({9});
    EXPECT_EQ(to->read_until("+CMT: ,20\r\n"), "\r\n+CMT: ,20\r\n");
    const std::string pdu = to->read_until("\r\n");
    to->expect("AT+CMGW=20,0\r", "\r\n> ");
    to->expect(pdu + "\x1a", "\r\n+CMGW: 1\r\n\r\nOK\r\n");
    to->expect("AT+CMGR=1\r", "\r\n+CMGR: 0,,20\r\n" + pdu + "\r\nOK\r\n");
    to->expect("AT+CMGW=20\r", "\r\n> ");
    to->expect(pdu + "\x1a", "\r\n+CMS ERROR: 304\r\n");  // it is none to be sent
}

// Of each fault: an order, and how it is told.
TEST_F(faults_test, those_in_force_are_told_as_orders) {
    const std::string orders[][2] = {
        {"refuse=38x2", ""},
        {"refuse-to=+12025550177:1", ""},
        {"lose-results=1", ""},
        {"late-results=700", ""},
        {"late-prompt=1", ""},
        {"delay=3000", ""},
        {"delivery-gap=0", ""},
        {"duplicate=on", "duplicate"},
        {"reorder=3", ""},
        {"both-ways", ""},
        {"unannounced", ""},
        {"wrong-index", ""},
        {"fail-deletes=3", ""},
        {"pdu=length-under", ""},
        {"memory-full", R"(memory-full=^SMMEMFULL: "ME")"},
        {"full", ""},
        {"storage=20", ""},
        {"registration=none", ""},
        {"technology=lte", ""},
        {"ussd=", ""},
        {"hang-up", ""},
        {"silent=on", "silent"},
        {"silent=opened", ""},
        {"late-answers=1", ""},
        {"single-octets", ""},
        {"echo=off", ""},
        {"numeric-results", ""},
        {"text-mode", ""},
        {"prompt=spaced-line", ""},
        {"chatter", "chatter=^RSSI: 21"},
        {"errors=plain", ""},
        {"offers=stored", ""},
        {"sim-busy=5000", "sim-busy=5000:314"},
        {"pin=4711", ""},
    };
    std::set<std::string_view> untold;
    for (const fault_t& fault : fault_table()) {
        untold.insert(fault.name);
    }
    std::vector<std::string> together;
    for (const auto& [order, told] : orders) {
        const std::string expected = told.empty() ? order : told;
        set_fault(bob, order);
        EXPECT_EQ(network_->faults_in_force(bob), std::vector{expected});
        set_fault(bob, "clear");
        EXPECT_EQ(network_->faults_in_force(bob), std::vector<std::string>{}) << order;
        untold.erase(std::string_view(order).substr(0, order.find('=')));
        if (order != "hang-up" && expected != "silent") {
            together.push_back(expected);
        }
    }
    EXPECT_EQ(untold, (std::set<std::string_view>{"restart", "return", "clear"})) << "add an order";
    together.insert(together.begin() + 2, "refuse-to=+12025550188:38");
    for (size_t i = together.size(); i-- > 0;) {
        set_fault(bob, together[i]);
    }
    EXPECT_EQ(network_->faults_in_force(bob), together) << "in the table's order";
}

TEST_F(faults_test, what_is_left_of_those_in_force_is_told) {
    const auto from = host(alice);
    set_fault(alice, "refuse=38x2");
    submit(*from, submit_to(bob, {1}));
    from->expect("", "\r\n+CMS ERROR: 38\r\n");
    EXPECT_EQ(network_->faults_in_force(alice), std::vector<std::string>{"refuse=38x1"});
    const auto left = [this] {
        const std::vector<std::string> orders = network_->faults_in_force(bob);
        return orders.size() == 1 ? orders[0] : fmt::format("{} orders", orders.size());
    };
    for (const std::string order : {"hang-up=", "restart=:+CPIN: SIM PIN"}) {
        const size_t value = order.find('=') + 1;
        set_fault(bob, std::string(order).insert(value, "600000"));
        base::advance_clock(200'000);
        const std::string told = left();
        const std::string rest = told.substr(value, told.size() - order.size());
        EXPECT_EQ(told, std::string(order).insert(value, rest));
        EXPECT_LE(std::stoi(rest), 400'000);
        EXPECT_GT(std::stoi(rest), 300'000);
        base::advance_clock(400'000);
        left();  // a round: that is over
        EXPECT_EQ(left(), "0 orders");
    }
    set_fault(bob, "restart=600000");
    set_fault(bob, "clear");
    EXPECT_EQ(left(), "0 orders");
    host(bob)->expect("AT\r", "\r\nOK\r\n");
}

}  // namespace
}  // namespace network
