// Store and forward between phones, 3GPP TS 23.040, as the hosts see it through 3GPP TS 27.005.
#include <ctime>

#include "base/clock.h"
#include "tests/network/host.h"

namespace network {
namespace {

class delivery_test : public network_test {
  protected:
    /// Alice sends Bob one message of this one octet.
    void send(uint8_t octet) {
        if (!alice_) {
            alice_ = host(alice);
        }
        submit(*alice_, submit_to(bob, {octet}));
        expect_ok(alice_->read_until("OK\r\n"), "submission");
    }
    std::unique_ptr<host_t> alice_;
};

TEST_F(delivery_test, a_message_crosses_octet_for_octet) {
    air::octets_t user_data = {6, 0x05, 4, 0x23, 0xF4, 0, 0};
    for (unsigned i = 0; user_data.size() < air::max_user_data; ++i) {
        user_data.push_back(static_cast<uint8_t>(i * 37));
    }
    air::submit_t message = submit_to(bob, user_data);
    message.header_indicator = true;
    message.validity_period = 0xAD;
    const auto from = host(alice);
    const auto to = host(bob, {"AT+CNMI=2,1", "AT+CPMS=\"SM\",\"SM\",\"SM\""});
    submit(*from, message);
    EXPECT_EQ(from->read_until("OK\r\n"), sent(0));

    const std::string notice = "\r\n+CMTI: \"SM\",1\r\n";
    EXPECT_EQ(to->read(notice.size()), notice);
    to->send("AT+CMGR=1\r");
    const std::string reply = to->read_until("OK\r\n");
    EXPECT_TRUE(reply.starts_with("\r\n+CMGR: 0,,159\r\n0691990900"));  // unread; the service centre's address first
    const air::deliver_t arrived = delivered(reply);
    air::deliver_t expected;
    expected.originator = air::address_from_number(alice).value();
    expected.data_coding = air::data_coding_8bit;
    expected.header_indicator = true;
    expected.user_data_length = 140;
    expected.user_data = user_data;
    expected.service_centre_time = arrived.service_centre_time;
    EXPECT_EQ(arrived, expected);

    tm stamp{};  // local time with its offset: as a moment it is now
    const air::timestamp_t& time = arrived.service_centre_time;
    stamp.tm_year = 100 + time.year;
    stamp.tm_mon = time.month - 1;
    stamp.tm_mday = time.day;
    stamp.tm_hour = time.hour;
    stamp.tm_min = time.minute;
    stamp.tm_sec = time.second;
    EXPECT_NEAR(static_cast<double>(timegm(&stamp) - time.quarters_east * 900L),
                static_cast<double>(std::time(nullptr)), patience / 1000.0);

    to->send("AT+CMGR=1\r");
    EXPECT_TRUE(to->read_until("OK\r\n").starts_with("\r\n+CMGR: 1,,159\r\n")) << "read by now";
    to->expect("AT+CMGL=0\r", "\r\nOK\r\n");
    to->send("AT+CMGL=1\r");
    EXPECT_EQ(delivered(to->read_until("OK\r\n")), arrived);
    to->expect("AT+CMGD=1,1;+CMGL=4\r", "\r\nOK\r\n");
}

TEST_F(delivery_test, a_phone_that_sends_to_itself_is_told_after_the_result) {
    const auto self = host(alice, {"AT+CNMI=2,1"});
    submit(*self, submit_to(alice, {1}));
    const std::string expected = sent(0) + "\r\n+CMTI: \"ME\",1\r\n";
    EXPECT_EQ(self->read(expected.size()), expected);
}

TEST_F(delivery_test, a_message_waits_for_a_phone_that_comes_later) {
    const auto from = host(alice);
    for (const std::string digits : {"+4930555", "4930555", "4930555"}) {
        submit(*from, submit_to(digits, {static_cast<uint8_t>(digits.size())}));
        expect_ok(from->read_until("OK\r\n"), "submission");
    }
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 3));
    ASSERT_TRUE(network_->attach("4930555", &error_)) << error_;
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    const auto to = host("4930555");
    for (const uint8_t index : {1, 2, 3}) {
        to->send("AT+CMGR=" + std::to_string(index) + "\r");
        const air::deliver_t message = delivered(to->read_until("OK\r\n"));
        EXPECT_EQ(message.user_data, air::octets_t{static_cast<uint8_t>(index == 1 ? 8 : 7)});
        EXPECT_EQ(message.more_messages, index != 3);  // TP-MMS
    }
}

TEST_F(delivery_test, a_full_memory_leaves_the_message_at_the_service_centre) {
    set_fault(bob, "storage=2");
    const auto to = host(bob, {"AT+CNMI=2,1"});
    for (const uint8_t octet : {1, 2, 3}) {
        send(octet);
    }
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 2));
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 1));
    to->expect("", "\r\n+CMTI: \"ME\",1\r\n\r\n+CMTI: \"ME\",2\r\n");
    to->expect("AT+CPMS?\r", "\r\n+CPMS: \"ME\",2,2,\"ME\",2,2,\"ME\",2,2\r\n\r\nOK\r\n");
    to->expect("AT+CMGD=1\r", "\r\nOK\r\n\r\n+CMTI: \"ME\",1\r\n");
    to->send("AT+CMGR=1\r");
    EXPECT_EQ(delivered(to->read_until("OK\r\n")).user_data, air::octets_t{3});
    to->expect("AT+CMGD=?\r", "\r\n+CMGD: (1,2),(0-4)\r\n\r\nOK\r\n");
    to->expect("AT+CMGD=1,1;+CMGD=?\r", "\r\n+CMGD: (2),(0-4)\r\n\r\nOK\r\n");  // unread ones stay
}

TEST_F(delivery_test, an_arrival_during_text_entry_is_told_after_it) {
    const auto to = host(bob, {"AT+CNMI=2,1"});
    to->expect("AT+CMGS=14\r", "\r\n> ");
    send(1);
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    to->expect("\x1b", "\r\nOK\r\n\r\n+CMTI: \"ME\",1\r\n");
}

// 3GPP TS 27.005 3.4.1 and 3.4.4.
TEST_F(delivery_test, a_direct_delivery_is_acknowledged_or_stored) {
    const auto to = host(bob, {"AT+CSMS=1", "AT+CNMI=2,2"});
    const auto handed_over = [&](uint8_t octet) {
        const std::string line = to->read_until("\r\n+CMT: ,20\r\n");
        EXPECT_EQ(line, "\r\n+CMT: ,20\r\n");
        EXPECT_EQ(delivered("\r\n" + to->read_until("\r\n")).user_data, air::octets_t{octet});
    };
    send(1);
    handed_over(1);
    send(2);  // not before the first is acknowledged
    EXPECT_EQ(network_->statistics().delivered, 0U);
    to->expect("AT+CNMA\r", "\r\nOK\r\n");
    handed_over(2);
    to->expect("AT+CNMA=2\r", "\r\nOK\r\n");  // the host has no room
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 2));
    to->expect("AT+CNMI?\r", "\r\n+CNMI: 2,0,0,0,0\r\n\r\nOK\r\n");
    to->send("AT+CMGR=1\r");
    EXPECT_EQ(delivered(to->read_until("OK\r\n")).user_data, air::octets_t{2});

    to->expect("AT+CNMI=2,2\r", "\r\nOK\r\n");
    send(3);
    handed_over(3);
    base::advance_clock(14'000);
    to->expect_nothing();
    EXPECT_EQ(network_->statistics().waiting, 1U);
    base::advance_clock(1'000);
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    to->expect("AT+CNMA\r", "\r\n+CMS ERROR: 340\r\n");
    to->send("AT+CMGR=2\r");
    EXPECT_EQ(delivered(to->read_until("OK\r\n")).user_data, air::octets_t{3});
}

TEST_F(delivery_test, without_phase_2_plus_nothing_is_to_be_acknowledged) {
    const auto to = host(bob, {"AT+CNMI=1,2"});
    send(1);
    send(2);
    for (const uint8_t octet : {1, 2}) {
        to->read_until("+CMT: ,20\r\n");
        EXPECT_EQ(delivered("\r\n" + to->read_until("\r\n")).user_data, air::octets_t{octet});
    }
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 2));
    to->expect("AT+CNMI=0\r", "\r\nOK\r\n");  // mode 0 tells the host nothing
    send(3);
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 3));
    to->expect("AT+CMGD=?\r", "\r\n+CMGD: (1),(0-4)\r\n\r\nOK\r\n");
}

}  // namespace
}  // namespace network
