// What becomes of datagrams: the state machine, the sender's pace, the radio's results.

#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "com/zpd/daemon/daemon.h"
#include "tests/driver/phone.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string sent = "QUEUED DISPATCHER RILLED SENT DONE ";

class states_test : public driver_test {
  protected:
    states_test() { phone.preset_logging(); }
    /// The radio tells of a network, and the sender's back-off is over.
    void give_network() {
        radio.system_changed(gsm);
        platform::testing::advance_clock(10000);
        radio.system_changed(gsm);
    }
    void set_capacity(unsigned capacity) { phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(1) + u8(capacity)); }
    void await_status(const std::vector<int32_t>& status) {
        eventually([&] { return phone.status(239) == status; });
    }
};

TEST_F(states_test, refused_datagram_ends_its_message) {
    phone.start_on(gsm);
    radio.follow({.submissions = {S_OK, S_OK, E_FAIL}});
    phone.send_card(400);
    await_status({1, 1, 2, 3});
    radio.confirm(1);
    radio.refuse(2);
    await_status({4, 3, 2, 3});
    EXPECT_EQ(radio.attempts().submissions, 3u);
    EXPECT_EQ(phone.states(239, 0), sent + "WAITING");
    EXPECT_EQ(phone.states(239, 1), "QUEUED DISPATCHER RILLED QUEUED DISPATCHER deferred DONE WAITING");
    EXPECT_EQ(phone.states(239, 2), "QUEUED DISPATCHER FAILED DONE WAITING");
    EXPECT_EQ(phone.states(239, 3), "QUEUED DISPATCHER deferred DONE WAITING");
    EXPECT_EQ(phone.logged("ERROR can't start RIL_SendMsg request for datagram 2 of message 239: error=0x80004005"),
              1u);
    EXPECT_EQ(phone.close(239), done());
    EXPECT_EQ(phone.close(239), failed(1002)) << "gone at once";
}

TEST_F(states_test, capacity_bounds_what_the_radio_holds) {
    phone.preset("ril_capacity", 1);
    phone.start_on(gsm);
    phone.send_card(700);  // six datagrams
    radio.submission(1);
    phone.let_sender_look();
    EXPECT_THAT(phone.status(239), ElementsAre(1, 0, 0, 0, 0, 0));
    radio.confirm(1);
    radio.submission(2);
    phone.let_sender_look();
    EXPECT_THAT(phone.status(239), ElementsAre(4, 1, 0, 0, 0, 0));
    set_capacity(3);
    phone.pass(0);
    radio.submission(4);
    set_capacity(1);
    radio.confirm(2);
    radio.confirm(4);
    phone.let_sender_look();
    EXPECT_THAT(phone.status(239), ElementsAre(4, 4, 1, 4, 0, 0)) << "none was pushed out, none went in";
    radio.confirm(3);
    radio.confirm(5);
    radio.confirm(6);
    await_status({4, 4, 4, 4, 4, 4});
}

TEST_F(states_test, closing_in_every_order) {
    phone.preset("ril_capacity", 1);
    phone.start();
    phone.send_card(10);
    EXPECT_EQ(phone.close(239), done()) << "while queued";
    EXPECT_EQ(phone.close(239), failed(1002));
    EXPECT_THAT(phone.list(), IsEmpty());
    EXPECT_THAT(phone.status(239), ElementsAre(0)) << "on its way all the same";
    radio.question(1);
    give_network();
    radio.confirm(1);
    EXPECT_THAT(phone.status(239), IsEmpty());

    phone.send_card(10);
    radio.submission(2);
    EXPECT_EQ(phone.close(240), done()) << "while with the radio";
    radio.confirm(2);
    EXPECT_THAT(phone.status(240), IsEmpty());

    phone.send_card(300);
    radio.confirm(3);
    radio.submission(4);
    EXPECT_EQ(phone.close(241), done()) << "one of each";
    EXPECT_THAT(phone.status(241), ElementsAre(-1, 1, 0));
    radio.confirm(4);
    radio.confirm(5);
    EXPECT_THAT(phone.status(241), IsEmpty());

    phone.send_card(134);
    radio.confirm(6);
    radio.confirm(7);
    EXPECT_EQ(phone.close(242), done()) << "after all was sent";
    EXPECT_EQ(phone.request(ZPD_IOCTL_MESSAGE_STATUS, u32(242)), failed(1002));

    EXPECT_EQ(phone.states(239, 0), sent + "RIPPED");
    EXPECT_EQ(phone.states(240, 0), sent + "RIPPED");
    EXPECT_EQ(phone.states(241, 0), sent + "WAITING RIPPED");
    EXPECT_EQ(phone.states(241, 2), sent + "RIPPED");
    EXPECT_EQ(phone.states(242, 1), sent + "WAITING RIPPED");
    expect_log();
}

TEST_F(states_test, second_retry_waits_five_seconds_over_the_wrap) {
    phone.start_on(gsm);
    platform::testing::advance_clock_to(0xFFFFFFFF - 2000);
    phone.send_card(10);
    const DWORD begin = GetTickCount();
    radio.refuse(1);
    radio.refuse(2);
    phone.let_sender_look();
    const DWORD armed = GetTickCount() - begin;  // by then
    EXPECT_LT(armed, 5000u) << "the first retry is immediate";
    for (DWORD passed = armed; radio.attempts().submissions == 2; phone.let_sender_look()) {
        ASSERT_LT(passed, armed + 5000) << "the sender has held a whole round since";
        phone.pass(1000);
        passed = GetTickCount() - begin;
    }
    EXPECT_GE(GetTickCount() - begin, 5000u);
    EXPECT_LT(GetTickCount(), 0x10000000u) << "wrapped";
    radio.system_changed(no_network);
    radio.refuse(3);
    EXPECT_THAT(phone.status(239), ElementsAre(0)) << "queued again, and no network";
    platform::testing::advance_clock(5000);
    radio.question(2);
    give_network();
    radio.confirm(4);
    EXPECT_THAT(phone.status(239), ElementsAre(4));
    const std::string refused = "QUEUED DISPATCHER RILLED ";
    EXPECT_EQ(phone.states(239, 0), refused + refused + refused + sent + "WAITING");
}

TEST_F(states_test, idle_sender_sleeps_for_an_hour_and_not_beyond_the_end) {
    phone.start_on(gsm);
    phone.let_sender_look();
    const auto time_outs = [this] { return phone.logged("INFO WaitForSingleObject() returned 'WAIT_TIMEOUT'"); };
    const size_t before = time_outs();
    uint64_t seconds = 3590;
    platform::testing::advance_clock(seconds * 1000);
    for (int look = 0; look < 100; ++look) {
        EXPECT_EQ(time_outs(), before);
    }
    eventually([&] {
        platform::testing::advance_clock(1000);
        ++seconds;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // not to run far ahead of it
        return time_outs() > before;
    });
    EXPECT_LT(seconds, 7200U);
    phone.let_sender_look();
    const auto wakes = [this] { return phone.logged("INFO WaitForSingleObject() returned 'WAIT_OBJECT_0'"); };
    const size_t awake = wakes();
    phone.stop();
    eventually([&] { return wakes() > awake; });
}

TEST_F(states_test, second_question_waits_ten_seconds_over_the_wrap) {
    platform::testing::advance_clock_to(0xFFFFFFFF - 4000);
    phone.start();
    radio.question(1);
    for (const uint64_t milliseconds : {0, 8000}) {
        platform::testing::advance_clock(milliseconds);
        const size_t before = phone.rounds();
        phone.send_card(size_t{25} * 128);
        eventually([&] { return phone.rounds() > before; });
        phone.request(ZPD_IOCTL_VERSION);
        EXPECT_EQ(radio.attempts().questions, 1u);
    }
    eventually([&] {
        platform::testing::advance_clock(1000);
        return radio.attempts().questions == 2;
    });
    radio.result(radio.question(2), RIL_RESULT_OK, u32(gsm));
    EXPECT_EQ(radio.attempts().submissions, 0u) << "the deadline holds although the answer is there";
    eventually([&] {
        platform::testing::advance_clock(1000);
        return radio.attempts().submissions == 7;
    });
    expect_log();
}

TEST_F(states_test, results_become_errors) {
    const std::pair<DWORD, std::string> results[] = {
        {3, u32(0x8005001A)}, {3, ""}, {3, "\1\2\3"}, {3, u32(0x11) + "rest"}, {0, u32(1)}, {7, ""}, {1, u32(77)}};
    phone.start_on(gsm);
    phone.send_card(10);
    size_t number = 0;
    for (const auto& [code, data] : results) {
        radio.result(radio.submission(++number).request, code, data);
        phone.pass(5000);
    }
    EXPECT_THAT(phone.status(239), ElementsAre(4));
    expect_log();
}

TEST_F(states_test, system_types) {
    phone.start();
    radio.result(radio.question(1), RIL_RESULT_ERROR, "abc");
    for (DWORD type = 1; type <= 0x800; type *= 2) {
        radio.system_changed(type);
    }
    radio.system_changed(0x448);
    expect_log();
    const DWORD types[2] = {gsm, gsm};
    radio.notify(RIL_NOTIFY_SYSTEMCHANGED, types, 8);
    radio.notify(RIL_NOTIFY_SYSTEMCHANGED, nullptr, 4);
    radio.notify(0x00020002, types, 4);
    EXPECT_EQ(phone.logged("NOTICE Availability bit mask: data32=0x~"), 13u);
}

// An older message that lost its id to a newer one, in each order of their ends. All ids in between are used up by
// cards that cannot be sent.
TEST_F(states_test, reused_ids) {
    phone.preset("logging_enabled", 0);
    phone.start_on(gsm);
    for (uint32_t id = 239; id <= 241; ++id) {
        EXPECT_EQ(phone.send_card(10), id);
    }
    radio.submission(3);
    phone.close(239);
    phone.close(240);
    platform::testing::fail_calls("RegSetValueExW", 5, -1);  // for speed: ids need not last here
    const wide_string_t unsendable(256, WCHAR{'1'});
    for (uint32_t id = 242; id != 239; id = (id + 1) & 0xFFFF) {
        const reply_t reply = phone.send("", unsendable);
        ASSERT_EQ(reply, id == 0 ? failed(4319, u32(0xFFFFFFFF)) : done(u32(id)));
        ASSERT_EQ(phone.close(id), done());
    }
    phone.request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(1) + u8(7) + u8(7));
    for (uint32_t id = 239; id <= 241; ++id) {
        EXPECT_EQ(phone.send_card(10), id);
    }
    radio.submission(6);
    radio.confirm(1);
    EXPECT_THAT(phone.status(239), ElementsAre(1)) << "the older one ended, the newer one is still there";
    radio.confirm(5);
    EXPECT_EQ(phone.close(240), done());
    radio.confirm(2);
    EXPECT_THAT(phone.status(240), IsEmpty()) << "both have ended";
    radio.confirm(3);
    EXPECT_THAT(phone.status(241), ElementsAre(1)) << "the older one was never closed";
    radio.confirm(6);
    EXPECT_THAT(phone.status(241), ElementsAre(4));
    EXPECT_EQ(phone.close(241), done());
    EXPECT_THAT(phone.list(), ElementsAre(239));
    radio.confirm(4);
    EXPECT_EQ(phone.close(239), done());
    EXPECT_THAT(phone.list(), IsEmpty());
    EXPECT_EQ(phone.logged("CRITICAL ERROR message descriptor ~ not found"), 0u) << "the older ones ended, too";
}

// What no request brings about, on a machine beside the daemon's own.
TEST_F(states_test, corners_of_the_machine) {
    phone.start();
    radio.question(1);
    machine_t machine(global_daemon_object);
    message_t message(7, TEXT("1"), std::string(144, 'x'));
    const auto add = [&](size_t offset, size_t octets) {
        return new datagram_t(message, static_cast<uint8_t>(message.datagrams.size()), "\x07" + port_header,
                              octet_view_t(message.card).substr(offset, octets), message.phone);
    };
    datagram_t* const first = add(0, 10);
    datagram_t* const second = add(10, 134);
    machine.enqueue_datagram(first);
    machine.enqueue_datagram(second);
    machine.state_retry->go_to(second);  // leaves QUEUED out of turn
    machine.state_dispatcher->go_to(first);
    EXPECT_EQ(first->status, 2);
    EXPECT_TRUE(second->aborted);
    radio.system_changed(gsm);
    phone.request(ZPD_IOCTL_VERSION);
    second->aborted = false;
    machine.state_dispatcher->go_to(second);
    EXPECT_EQ(second->status, 2);
    EXPECT_EQ(radio.attempts().submissions, 0u);
    std::swap(message.datagrams[0], message.datagrams[1]);
    machine.state_ripped->go_to(first);
    EXPECT_EQ(message.datagram_count, 2u);
    expect_log();
}

}  // namespace
