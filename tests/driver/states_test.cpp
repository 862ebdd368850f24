// What becomes of datagrams: the state machine, the sender's pace, the radio's results.

#include <gmock/gmock.h>

#include "com/zpd/daemon/daemon.h"
#include "tests/driver/phone.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string sent = "QUEUED DISPATCHER RILLED SENT DONE ";

class states_test : public driver_test {
  protected:
    states_test() { phone.preset_logging(); }
    void confirm(size_t number) { radio.confirm(radio.submission(number).request); }
    void refuse(size_t number) { radio.refuse(radio.submission(number).request); }
    /// The radio tells of a network, and the sender's back-off is over.
    void give_network() {
        radio.system_changed(gsm);
        platform::testing::advance_clock(10000);
        radio.system_changed(gsm);
    }
    void set_capacity(unsigned capacity) { phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(1) + u8(capacity)); }
    void await_status(uint32_t id, const std::vector<int32_t>& status) {
        eventually([&] { return phone.status(id) == status; });
        EXPECT_EQ(phone.status(id), status);
    }
};

TEST_F(states_test, refused_datagram_ends_its_message) {
    phone.start_on(gsm);
    radio.follow({.submissions = {S_OK, E_FAIL}});
    phone.send_card(300);
    await_status(239, {1, 2, 3});
    confirm(1);
    await_status(239, {4, 2, 3});
    EXPECT_EQ(radio.attempts().submissions, 2u);
    EXPECT_EQ(phone.states(239, 0), sent + "WAITING");
    EXPECT_EQ(phone.states(239, 1), "QUEUED DISPATCHER FAILED DONE WAITING");
    EXPECT_EQ(phone.states(239, 2), "QUEUED DISPATCHER deferred DONE WAITING");
    EXPECT_EQ(phone.logged("ERROR can't start RIL_SendMsg request for datagram 1 of message 239: error=0x80004005"),
              1u);
    EXPECT_EQ(phone.close(239), done());
    EXPECT_EQ(phone.close(239), failed(1002)) << "gone at once";
}

TEST_F(states_test, datagram_with_the_radio_is_deferred_when_it_comes_back) {
    phone.start_on(gsm);
    radio.follow({.submissions = {S_OK, E_FAIL}});
    phone.send_card(134);
    await_status(239, {1, 2});
    refuse(1);
    await_status(239, {3, 2});
    EXPECT_EQ(phone.states(239, 0), "QUEUED DISPATCHER RILLED QUEUED DISPATCHER deferred DONE WAITING");
}

TEST_F(states_test, capacity_bounds_what_the_radio_holds) {
    phone.preset("ril_capacity", 1);
    phone.start_on(gsm);
    phone.send_card(700);  // six datagrams
    radio.submission(1);
    phone.let_sender_look();
    EXPECT_THAT(phone.status(239), ElementsAre(1, 0, 0, 0, 0, 0));
    confirm(1);
    radio.submission(2);
    phone.let_sender_look();
    EXPECT_THAT(phone.status(239), ElementsAre(4, 1, 0, 0, 0, 0));
    set_capacity(3);
    phone.pass(0);
    radio.submission(4);
    set_capacity(1);
    confirm(2);
    confirm(4);
    phone.let_sender_look();
    EXPECT_THAT(phone.status(239), ElementsAre(4, 4, 1, 4, 0, 0)) << "none was pushed out, none went in";
    confirm(3);
    confirm(5);
    confirm(6);
    await_status(239, {4, 4, 4, 4, 4, 4});
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
    confirm(1);
    EXPECT_THAT(phone.status(239), IsEmpty());

    phone.send_card(10);
    radio.submission(2);
    EXPECT_EQ(phone.close(240), done()) << "while with the radio";
    confirm(2);
    EXPECT_THAT(phone.status(240), IsEmpty());

    phone.send_card(300);
    confirm(3);
    radio.submission(4);
    EXPECT_EQ(phone.close(241), done()) << "one of each";
    const auto mixed = phone.status(241);
    ASSERT_EQ(mixed.size(), 3u);
    EXPECT_EQ(mixed[1], 1);
    EXPECT_EQ(mixed[2], 0);
    confirm(4);
    confirm(5);
    EXPECT_THAT(phone.status(241), IsEmpty());

    phone.send_card(134);
    confirm(6);
    confirm(7);
    EXPECT_EQ(phone.close(242), done()) << "after all was sent";
    EXPECT_EQ(phone.request(ZPD_IOCTL_MESSAGE_STATUS, u32(242)), failed(1002));

    EXPECT_EQ(phone.states(239, 0), sent + "RIPPED");
    EXPECT_EQ(phone.states(240, 0), sent + "RIPPED");
    EXPECT_EQ(phone.states(241, 0), sent + "WAITING RIPPED");
    EXPECT_EQ(phone.states(241, 2), sent + "RIPPED");
    EXPECT_EQ(phone.states(242, 1), sent + "WAITING RIPPED");
    for (const int id : {239, 240, 241, 242}) {
        EXPECT_EQ(phone.logged("DEBUG message 0x~=" + std::to_string(id) + " erased from message database"), 1u);
    }
    EXPECT_EQ(phone.logged("ERROR message by id='239' already closed"), 1u);
    expect_in_order(phone.log(), "DEBUG removing message by id='242'", "DEBUG first loop, i=0 in",
                    "DEBUG first loop, i=0 out", "DEBUG first loop, i=1 in", "DEBUG first loop, i=1 out",
                    "DEBUG second loop, i=0 in 0x~=242[0x~=0]", "DEBUG machine=~", "DEBUG machine->state_waiting=~",
                    "DEBUG machine->state_waiting->elements=~", "DEBUG end of dump machine->state_waiting->elements",
                    "DEBUG second loop if-condition = 1", "DEBUG yes, calling machine->state_ripped->go_to(0x~)",
                    "DEBUG 0x~=242[0x~=0]", "DEBUG yes, d=dd=~", "DEBUG second loop, i=0 out",
                    "DEBUG second loop, i=1 in 0x~=242[0x~=1]", "DEBUG second loop, i=1 out", "DEBUG returning...");
}

TEST_F(states_test, second_retry_waits_five_seconds_over_the_wrap) {
    phone.start_on(gsm);
    platform::testing::advance_clock_to(0xFFFFFFFF - 2000);
    phone.send_card(10);
    refuse(1);
    refuse(2);  // the first retry is immediate
    phone.let_sender_look();
    EXPECT_EQ(radio.attempts().submissions, 2u);
    phone.pass(4900);
    EXPECT_LT(GetTickCount(), 0x10000000u) << "wrapped";
    phone.let_sender_look();
    EXPECT_EQ(radio.attempts().submissions, 2u);
    EXPECT_THAT(phone.status(239), ElementsAre(0));
    phone.pass(100);
    radio.submission(3);
    radio.system_changed(no_network);
    refuse(3);
    EXPECT_THAT(phone.status(239), ElementsAre(0)) << "queued again, and no network";
    platform::testing::advance_clock(5000);
    radio.question(2);
    give_network();
    confirm(4);
    EXPECT_THAT(phone.status(239), ElementsAre(4));
    const std::string refused = "QUEUED DISPATCHER RILLED ";
    EXPECT_EQ(phone.states(239, 0), refused + refused + refused + sent + "WAITING");
}

TEST_F(states_test, second_question_waits_ten_seconds_over_the_wrap) {
    platform::testing::advance_clock_to(0xFFFFFFFF - 4000);
    phone.start();
    radio.question(1);
    for (const uint64_t milliseconds : {0, 8000}) {
        platform::testing::advance_clock(milliseconds);
        const size_t before = phone.rounds();
        phone.send_card(10);
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
        return radio.attempts().submissions == 2;
    });
}

TEST_F(states_test, results_become_errors) {
    const std::string result_error = "ERROR ril_result_code=RIL_RESULT_ERROR=0x3 => error=";
    const std::tuple<DWORD, std::string, std::string, std::string> cases[] = {
        {3, u32(0x8005001A), result_error + "0x8005001A", "0x8005001A"},
        {3, "", result_error + "0xFFFFFFFF", "0xFFFFFFFF"},
        {3, "\1\2\3", result_error + "0xFFFFFFFF", "0xFFFFFFFF"},
        {3, u32(0x11) + "rest", result_error + "0x11", "0x00000011"},
        {0, u32(1), "ERROR ril_result_code=0x0 => error=0xFFFFFFFF", "0xFFFFFFFF"},
        {7, "", "ERROR ril_result_code=0x7 => error=0x7", "0x00000007"},
        {1, u32(77), "ERROR ril_result_code=RIL_RESULT_OK=0x1 => error=0", "0x00000000"},
    };
    phone.start_on(gsm);
    phone.send_card(10);
    size_t number = 0;
    lines_t expected;
    for (const auto& [code, data, told, error] : cases) {
        radio.result(radio.submission(++number).request, code, data);
        phone.pass(5000);
        expected = lines(expected, told, "DEBUG datagram_t *d=0x~, error=" + error);
    }
    EXPECT_THAT(phone.status(239), ElementsAre(4));
    expect_in_order(phone.log(), expected);
}

TEST_F(states_test, system_types) {
    phone.start();
    radio.result(radio.question(1), RIL_RESULT_ERROR, "abc");
    EXPECT_EQ(phone.logged("ERROR no 32 bit data field available"), 1u);
    std::vector<std::string> expected;
    for (DWORD type = 1; type <= 0x800; type *= 2) {
        radio.system_changed(type);
        const bool is_gsm = (type & 0x738) != 0, is_cdma = (type & 0xC7) != 0;
        expected.push_back(std::string("NOTICE System type: GSM: ") + (is_gsm ? "YES" : "no") +
                           "; CDMA: " + (is_cdma ? "YES" : "no") + ";");
    }
    expect_in_order(phone.log(), expected);
    const DWORD types[2] = {gsm, gsm};
    const size_t updates = expected.size();
    radio.notify(RIL_NOTIFY_SYSTEMCHANGED, types, 8);
    radio.notify(RIL_NOTIFY_SYSTEMCHANGED, nullptr, 4);
    radio.notify(0x00020002, types, 4);
    EXPECT_EQ(phone.logged("NOTICE Availability bit mask: data32=0x~"), updates);
}

TEST_F(states_test, dumps_list_twenty) {
    phone.start();
    phone.send_card(size_t{25} * 128);
    phone.request(ZPD_IOCTL_VERSION);
    const auto log = phone.log();
    const auto last = std::find_if(log.rbegin(), log.rend(),
                                   [](const auto& line) { return line.starts_with("DEBUG STATE_queued={0x"); });
    ASSERT_NE(last, log.rend());
    EXPECT_EQ(std::count(last->begin(), last->end(), ','), 19);
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
    for (uint32_t id = 239; id <= 241; ++id) {
        EXPECT_EQ(phone.send_card(10), id);
    }
    radio.submission(6);
    confirm(1);
    EXPECT_THAT(phone.status(239), ElementsAre(1)) << "the older one ended, the newer one is still there";
    confirm(5);
    EXPECT_EQ(phone.close(240), done());
    confirm(2);
    EXPECT_THAT(phone.status(240), IsEmpty()) << "both have ended";
    confirm(3);
    EXPECT_THAT(phone.status(241), ElementsAre(1)) << "the older one was never closed";
    confirm(6);
    EXPECT_THAT(phone.status(241), ElementsAre(4));
    EXPECT_EQ(phone.close(241), done());
    EXPECT_THAT(phone.list(), ElementsAre(239));
    confirm(4);
    EXPECT_EQ(phone.close(239), done());
    EXPECT_THAT(phone.list(), IsEmpty());
}

// What no request brings about, on a machine beside the daemon's own.
TEST_F(states_test, corners_of_the_machine) {
    phone.start();
    radio.question(1);
    machine_t machine(global_daemon_object);
    message_t message(7);
    const auto add = [&](size_t octets) {
        return new datagram_t(message, static_cast<uint8_t>(message.datagrams.size()), "\x07" + port_header,
                              std::string(octets, 'x'), TEXT("1"));
    };
    datagram_t* const first = add(10);
    datagram_t* const second = add(134);
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
    expect_in_order(phone.log(), "DEBUG Transition 0x~: 7[1]:QUEUED->retry", "CRITICAL ERROR @state_queued_t::leave",
                    "DEBUG Transition 0x~: 7[1]:retry->QUEUED",
                    "CRITICAL ERROR EPIC FAIL: no network, can't send datagram :-(",
                    "ERROR datagram is too long: UDHL=7 + UDL=134 = 141 > 140",
                    "CRITICAL ERROR internal datagram structure error; 7[0] d=0x~, dd=0x~");
}

}  // namespace
