// The RIL functions over a pseudo-terminal, against a modem that a test scripts.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "base/clock.h"
#include "radio/observer.h"
#include "tests/radio/session_fixture.h"

namespace {

using base::advance_clock;
using radio::attach_modem;
using radio::detach_modem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

const std::string ok = scripted_modem_t::ok;

TEST_F(session, failures_to_attach_say_what_and_why) {
    EXPECT_THAT(attach_modem({"/dev/no-such-tty"}), HasSubstr("/dev/no-such-tty: No such file"));
    EXPECT_THAT(attach_modem({"/dev/null"}), HasSubstr("/dev/null is no tty"));
    modem.once("AT+CPIN?", "\r\n+CPIN: SIM PIN\r\n" + ok);
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("--pin-file"));
    modem.once("AT+CMGF=0", "\r\n+CMS ERROR: 303\r\n");
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("PDU mode"));
    EXPECT_EQ(attach_modem({modem.tty()}), "") << "a failure leaves the tty free";
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("attached already"));
}

TEST_F(session, nothing_is_said_to_a_modem_that_another_program_talks_to) {
    const int other = ::open(modem.tty().c_str(), O_RDWR | O_NOCTTY);
    flock(other, LOCK_EX);
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("in use by another program"));
    EXPECT_TRUE(modem.log().empty());
    close(other);
}

TEST_F(session, a_silent_tty_is_given_up_in_time) {
    for (const auto& [command, error] :
         {std::pair("ATQ0V1E0", "no modem answers on "), std::pair("AT+CPMS=?", "does not answer AT+CPMS=?")}) {
        std::future<std::string> attached = attach_up_to(command);
        advance_clock(300'000);
        EXPECT_THAT(attached.get(), HasSubstr(error));
    }
}

TEST_F(session, a_hang_up_in_the_last_step_is_no_success) {
    std::future<std::string> attached = attach_up_to("AT+CREG?");
    modem.hang_up();
    EXPECT_THAT(attached.get(), HasSubstr("hung up"));
}

TEST_F(session, attaching_can_be_cancelled) {
    for (const char* silent : {"ATQ0V1E0", "AT+CPIN?"}) {
        std::future<std::string> attached = attach_up_to(silent);
        radio::cancel_attach();
        ASSERT_EQ(attached.wait_for(scripted_modem_t::patience), std::future_status::ready) << silent;
        EXPECT_EQ(attached.get(), "cancelled");
    }
    radio::cancel_attach();
    EXPECT_EQ(attach_modem({modem.tty()}), "cancelled") << "it had not begun yet";
    attach();
    radio::cancel_attach();
    detach_modem();
    attach();
}

TEST_F(session, a_modem_that_cannot_be_set_up_is_tried_ever_more_rarely) {
    attach_and_open();
    modem.on("AT+CMGF=0", "\r\n+CMS ERROR: 303\r\n");
    modem.hang_up();
    EXPECT_EQ(recorder.events(1), events_t{system_type(0)});
    modem.plug_in();
    link(options.tty, modem);
    size_t tries = modem.count("AT+CMGF=0");
    for (const uint64_t seconds : {1, 2, 4, 8, 16, 30, 30}) {
        const auto tried_again = [&] { return modem.heard("AT+CMGF=0", tries + 1, std::chrono::milliseconds(30)); };
        EXPECT_FALSE(tried_again());
        advance_clock(seconds * 1000 - 500);
        EXPECT_FALSE(tried_again()) << "before " << seconds << " s";
        ASSERT_TRUE(as_time_passes(tried_again));
        ++tries;
    }
}

TEST_F(session, a_text_entry_that_a_crash_left_is_ended) {
    const int crashed = ::open(modem.tty().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_EQ(write(crashed, "AT+CMGS=10\r", 11), 11);
    ASSERT_TRUE(modem.heard("AT+CMGS=10"));
    ASSERT_EQ(write(crashed, "0011", 4), 4);
    attach();
    close(crashed);
    EXPECT_THAT(modem.log(), Not(Contains(HasSubstr("0011"))));
}

TEST_F(session, a_gsm_modem_is_asked_nothing_of_cdma) {
    modem.on("AT+GCAP", modem.line_and_ok("+GCAP: +CGSM"));
    attach();
    EXPECT_EQ(modem.count("AT+CAD?"), 0U);
}

TEST_F(session, what_cannot_go_on_the_air_fails_at_once) {
    EXPECT_EQ(send(), RIL_E_RADIONOTPRESENT);
    attach_and_open();
    EXPECT_LT(RIL_SendMsg(nullptr, nullptr, 0), 0);
    EXPECT_LT(RIL_SendMsg(handle, nullptr, 0), 0);
    const RILMESSAGE largest = outgoing("12345678901234567890", std::string(140 - 12, 'x'));
    std::array<RILMESSAGE, 6> broken;
    broken.fill(largest);
    broken[0].msgOutSubmit.raDestAddress.wszAddress[0] = 0;
    std::ranges::fill(broken[1].msgOutSubmit.raDestAddress.wszAddress, u'1');  // no end
    broken[2].msgOutSubmit.cbBodyLength += 1;
    broken[3].msgOutSubmit.cbHdrLength = 0xFFFFFFFF;
    broken[4].dwType = RIL_MSGTYPE_OUT_CDMASUBMIT;
    broken[5].cbSize -= 1;
    for (size_t i = 0; i < broken.size(); ++i) {
        EXPECT_LT(RIL_SendMsg(handle, &broken[i], 0), 0) << i;
    }
    const HRIL older = handle;
    open();
    EXPECT_LT(RIL_SendMsg(older, &largest, 0), 0) << "another session has taken its place";
    EXPECT_GT(RIL_SendMsg(handle, &largest, 0), 0) << "20 digits, 140 octets";
    recorder.events(1);
    EXPECT_THAT(modem.log(), Contains(HasSubstr("1481214365870921436587090004AD8C0B05")));
}

// In text mode "AT+CMGS=30" would send the digits of the PDU to the number 30.
TEST_F(session, nothing_goes_out_in_text_mode) {
    attach_and_open();
    RIL_GetCurrentSystemType(handle);
    recorder.events(1);  // it has nothing else to do
    advance_clock(3'000);
    modem.once("AT+CMGF?", modem.line_and_ok("+CMGF: 1"));
    const HRESULT request = send();
    EXPECT_EQ(recorder.events(2).back(), sent(request));
    const std::vector<std::string> log = modem.log();
    const auto submitted = std::ranges::find_if(log, [](auto& line) { return line.starts_with("AT+CMGS="); });
    EXPECT_EQ(std::count(log.begin(), submitted, "AT+CMGF=0"), 2) << "it has restarted, and is set up again";
}

// A first answer after 1.4 s, and every one from then on, must not shift: the SIM is asked before it is believed.
TEST_F(session, late_answers_are_not_taken_for_those_to_later_questions) {
    modem.set_delay(std::chrono::milliseconds(1400));
    modem.on("AT+CPIN?", modem.line_and_ok("+CPIN: SIM PUK"));
    EXPECT_THAT(attach_modem(options), HasSubstr("locked (SIM PUK)"));
}

TEST_F(session, a_silent_modem_is_given_up_and_found_again) {
    attach_and_open();
    ASSERT_EQ(radio::set_limit("silence", "60") + radio::set_limit("first-answer", "5"), "");
    testing::internal::CaptureStderr();
    modem.mute(true);
    const HRESULT request = send();
    const auto have_come = [this](size_t events) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return recorder.events(0).size() >= events;
    };
    EXPECT_TRUE(as_time_passes([&] { return have_come(2); }));
    EXPECT_EQ(recorder.events(2), (events_t{failed(request, RIL_E_NETWORKTIMEOUT), system_type(0)}));
    EXPECT_FALSE(as_time_passes([&] { return have_come(3); }));  // and it is looked for
    modem.mute(false);
    EXPECT_TRUE(as_time_passes([&] { return have_come(3); }));
    EXPECT_EQ(recorder.events(3).back(), system_type(8));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, HasSubstr("does not answer (AT for 60 s); it is looked for"));
    EXPECT_THAT(told, Not(HasSubstr("no modem answers"))) << "told once";
}

TEST_F(session, an_end_waits_for_the_callback_that_runs) {
    const auto end_in_a_callback = [this](const std::string& body, const std::function<void()>& end) {
        const size_t before = recorder.events(0).size();
        recorder.block(true);
        receive(3, body + " before");
        recorder.events(before + 1);
        receive(4, body + " after");
        ASSERT_TRUE(modem.heard("AT+CMGD=4", modem.count("AT+CMGD=3")));
        auto ended = std::async(std::launch::async, end);
        EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        recorder.block(false);
        ended.get();
        EXPECT_LT(send(), 0);
    };
    attach_and_open();
    end_in_a_callback("session", [this] { EXPECT_EQ(RIL_Deinitialize(handle), S_OK); });
    EXPECT_LT(RIL_Deinitialize(handle), 0);
    open();
    events_t expected = {"message session before", "message session after"};
    EXPECT_EQ(recorder.events(2), expected) << "it stayed for the next session";
    end_in_a_callback("modem", detach_modem);
    attach();
    open();
    expected.insert(expected.end(), {"message modem before", "message modem after"});
    EXPECT_EQ(recorder.events(4), expected) << "or for the next process";
}

TEST_F(session, a_session_ends_in_its_own_callback) {
    attach_and_open();
    std::promise<HRESULT> ended;
    in_the_next_result = [&] { ended.set_value(RIL_Deinitialize(handle)); };
    send();
    std::future<HRESULT> result = ended.get_future();
    ASSERT_EQ(result.wait_for(scripted_modem_t::patience), std::future_status::ready) << "it waits for itself";
    EXPECT_EQ(result.get(), S_OK);
    EXPECT_LT(send(), 0);
    open();
    const HRESULT request = send();
    EXPECT_EQ(recorder.events(2).back(), sent(request));
}

/// Notes what it is told, and gives up what it is told to.
class watcher_t : public radio::observer_t {
  public:
    void submitted(const radio::outgoing_t& datagram, const radio::submission_outcome_t& outcome) override {
        notes += fmt::format("{} {}/{} {}: {}\n", datagram.number, datagram.place.part, datagram.place.parts,
                             std::string(datagram.body.begin(), datagram.body.end()),
                             words[static_cast<size_t>(outcome.kind)] + std::to_string(outcome.result.code));
    }
    bool is_given_up(const radio::outgoing_t& datagram) override { return gives_up.load() == datagram.number; }
    void stored(const std::string& /*sender*/, const std::filesystem::path& /*file*/) override {}
    void dropped(const std::string& /*sender*/) override {}
    void modem_changed(const radio::modem_state_t& /*state*/) override {}

    std::string notes;  // the modem's thread writes, a test reads when it has the result
    std::atomic<const char*> gives_up = "";

  private:
    const std::vector<std::string> words{"sent ", "refused ", "unknown ", "not out "};
};

// Of a refused message one datagram more is answered, with a success: the driver would pause before each of the rest.
TEST_F(session, a_message_that_is_given_up_goes_no_more_and_holds_up_none) {
    watcher_t watcher;
    options.observer = &watcher;
    attach_and_open();
    const HRESULT first = send();
    EXPECT_EQ(recorder.events(1).back(), sent(first));
    watcher.gives_up = "+491701234567";
    EXPECT_EQ(send(), E_FAIL);
    watcher.gives_up = "";
    modem.once(">", "");
    const HRESULT refused = send();
    const HRESULT waits = send();
    ASSERT_TRUE(modem.heard(">", 2));
    watcher.gives_up = "+491701234567";
    modem.say("\r\n+CMS ERROR: 1\r\n");
    EXPECT_EQ(recorder.events(3)[1], failed(refused, static_cast<DWORD>(RIL_E_CMSERROR_BASE) + 1));
    EXPECT_EQ(recorder.events(3)[2], sent(waits, 0));
    EXPECT_EQ(send(), E_FAIL);
    watcher.gives_up = "";
    modem.once(">", "\r\n+CMS ERROR: 1\r\n");
    EXPECT_GT(send(), 0);
    recorder.events(4);
    watcher.gives_up = "+491701234567";
    const HRESULT ends_pause = send();
    EXPECT_EQ(recorder.events(5).back(), sent(ends_pause, 0));
    EXPECT_EQ(send(), E_FAIL);
    const RILMESSAGE other = outgoing("+491701234568", "other");
    const HRESULT last = RIL_SendMsg(handle, &other, 0);
    EXPECT_EQ(recorder.events(6).back(), sent(last));
    detach_modem();
    EXPECT_EQ(modem.count(">"), 4U);
    EXPECT_EQ(watcher.notes,
              "+491701234567 1/2 card: sent 0\n+491701234567 1/2 card: refused 1\n+491701234567 1/2 card: refused 1\n"
              "+491701234568 1/2 other: sent 0\n");
}

TEST_F(session, announcements_without_end_become_a_listing) {
    attach_and_open();
    const size_t listings = modem.count("AT+CMGL=4");
    std::string announcements;
    for (int i = 0; i < 1500; ++i) {
        announcements += "\r\n+CMTI: \"SM\",1\r\n";
    }
    modem.on("AT+CMGR=1", modem.ok);
    modem.once("AT+CMGR=1", "");
    modem.say(announcements);
    ASSERT_TRUE(modem.heard("AT+CMGR=1", 1));
    modem.say("\r\n+CMTI: \"SM\",2\r\n");  // behind the others: all are in by now
    modem.say(modem.ok);
    ASSERT_TRUE(modem.heard("AT+CMGR=1", 1001));
    EXPECT_TRUE(as_time_passes([&] { return modem.count("AT+CMGL=4") > listings; }));
    EXPECT_EQ(modem.count("AT+CMGR=1"), 1001U);
    EXPECT_EQ(modem.count("AT+CMGR=2"), 0U);
}

TEST_F(session, an_answer_without_end_is_given_up) {
    attach_and_open();
    std::string listing;
    const std::string entry = "\r\n+CMGL: 1,0,,20\r\n" + std::string(350, 'A') + "\r\n";
    while (listing.size() < 9'000'000) {
        listing += entry;
    }
    const size_t before = modem.count("AT+CMGF=0");
    testing::internal::CaptureStderr();
    modem.once("AT+CMGL=4", listing);
    base::advance_clock(300'000);
    EXPECT_TRUE(modem.heard("AT+CMGF=0", before + 1)) << "it is set up again";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("the answer to AT+CMGL=4 has no end"));
}

}  // namespace
