// The RIL functions over a pseudo-terminal, against a modem that a test scripts.
#include <fcntl.h>
#include <platform/linux/testing.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <tuple>

#include "tests/radio/session_fixture.h"

namespace {

using namespace std::chrono_literals;
using platform::testing::advance_clock;
using radio::attach_modem;
using radio::detach_modem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

const std::string ok = scripted_modem_t::ok;

// ---- Attaching. -----------------------------------------------------------------------------------------------------

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

TEST_F(session, tty_of_another_program_is_left_alone) {
    const int other = ::open(modem.tty().c_str(), O_RDWR | O_NOCTTY);
    flock(other, LOCK_EX);
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("in use by another program"));
    flock(other, LOCK_UN);
    ioctl(other, TIOCEXCL);
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("in use by another program"));
    ioctl(other, TIOCNXCL);
    close(other);

    std::string name = modem.tty().substr(std::strlen("/dev/"));
    std::ranges::replace(name, '/', '_');
    const std::filesystem::path lock_file = "/run/lock/LCK.." + name;
    const pid_t holder = fork();
    if (holder == 0) {
        pause();
        _exit(0);
    }
    const auto write_lock_file = [&] { std::ofstream(lock_file) << holder << '\n'; };
    write_lock_file();
    EXPECT_THAT(attach_modem({modem.tty()}), HasSubstr("process " + std::to_string(holder)));
    EXPECT_TRUE(modem.log().empty()) << "nothing is said to a modem that another talks to";
    kill(holder, SIGKILL);
    for (const int still_a_zombie : {WNOWAIT, 0}) {
        siginfo_t ignored{};
        waitid(P_PID, static_cast<id_t>(holder), &ignored, WEXITED | still_a_zombie);
        write_lock_file();
        EXPECT_EQ(attach_modem({modem.tty()}), "") << "the lock of a dead process is taken over";
        detach_modem();
        EXPECT_FALSE(std::filesystem::exists(lock_file));
    }
}

TEST_F(session, a_silent_tty_is_given_up_in_time) {
    const std::tuple<const char*, DWORD, std::string> rows[] = {
        {"ATQ0V1E0", 5000, "no modem answers on " + modem.tty()},
        {"AT+CPMS=?", 10000, "does not answer AT+CPMS=?"},
    };
    for (const auto& [command, milliseconds, error] : rows) {
        modem.on(command, "");
        auto attached = std::async(std::launch::async, [this] { return attach_modem({modem.tty()}); });
        ASSERT_TRUE(modem.heard(command));
        advance_clock(milliseconds);
        EXPECT_THAT(attached.get(), HasSubstr(error));
        modem.on(command, ok);
    }
}

TEST_F(session, a_hang_up_in_the_last_step_is_no_success) {
    modem.on("AT+CREG?", "");
    auto attached = std::async(std::launch::async, [this] { return attach_modem({modem.tty()}); });
    ASSERT_TRUE(modem.heard("AT+CREG?"));
    modem.hang_up();
    EXPECT_THAT(attached.get(), HasSubstr("hung up"));
}

TEST_F(session, attaching_can_be_cancelled) {
    for (const char* silent : {"ATQ0V1E0", "AT+CPIN?"}) {
        modem.on(silent, "");
        auto attached = std::async(std::launch::async, [this] { return attach_modem({modem.tty()}); });
        ASSERT_TRUE(modem.heard(silent));
        radio::cancel_attach();
        ASSERT_EQ(attached.wait_for(900ms), std::future_status::ready) << silent;  // all time limits are longer
        EXPECT_EQ(attached.get(), "cancelled");
        modem.on(silent, scripted_modem_t::line_and_ok("+CPIN: READY"));
    }
    radio::cancel_attach();
    EXPECT_EQ(attach_modem({modem.tty()}), "cancelled") << "it had not begun yet";
    attach();
    radio::cancel_attach();
    detach_modem();
    attach();
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

// ---- Sending. -------------------------------------------------------------------------------------------------------

TEST_F(session, a_datagram_goes_out_octet_for_octet) {
    attach_and_open();
    const HRESULT request = send("ABC");
    ASSERT_GT(request, 0);
    EXPECT_EQ(recorder.events(1), events_t{sent(request)});
    EXPECT_EQ(modem.count("AT+CMGS=29"), 1U);
    // No service centre, then 3GPP TS 23.040 9.2.2.2: international number, 8-bit data, seven days, header.
    const std::string entry = modem.log().back();
    EXPECT_EQ(">0051" + entry.substr(5, 2) + "0C919471103254760004AD0F0B050423F423F40003010201414243", entry);
    EXPECT_NE(entry.substr(5, 2), "00") << "a reference of its own";
    EXPECT_EQ(modem.count("AT+CMMS=1"), 0U) << "refused at the start";
}

TEST_F(session, refusals_and_odd_dialogues_of_a_submission) {
    const auto cms = [](HRESULT code) { return RIL_E_CMSERROR_BASE | code; };
    const std::tuple<const char*, const char*, HRESULT> refusals[] = {
        {"\r\n> ", "\r\n+CMS ERROR: 38\r\n", cms(38)},
        {"\r\n> ", "\r\n+CMS ERROR: memory full\r\n", cms(322)},
        {"\r\n> ", "\r\n+CME ERROR: 30\r\n", RIL_E_PHONEFAILURE},
        {"\r\n+CMS ERROR: 331\r\n", "", cms(331)},
        {"\r\n+CMS ERROR: 331\r\n", "", cms(331)},
    };
    constexpr DWORD own_reference = 0;
    const std::tuple<const char*, const char*, DWORD> references[] = {
        {">\r\n", "+CMGS: 255\r\nOK\r\n", 255},
        {"\r\n>", "\r\n^RSSI: 12\r\n+CMGS: 3\r\n+CREG: 1,\"00C3\",\"A12B\",0\r\n\r\nOK\r\n", 3},
        {"\r\n> ", "\r\nOK\r\n", own_reference},
    };
    attach_and_open();
    testing::internal::CaptureStderr();
    events_t expected;
    const auto send_with = [&](const char* prompt, const char* reply) {
        modem.on("AT+CMGS", prompt);
        modem.on(">", reply);
        return send();
    };
    for (const auto& [prompt, reply, error] : refusals) {
        expected.push_back(failed(send_with(prompt, reply), error));
        EXPECT_EQ(recorder.events(expected.size()), expected) << reply;
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("[^\n]*out of order[^\n]*38[^\n]*\n[^\n]*322[^\n]*: delete messages[^\n]*\n"
                                      "[^\n]*no network service \\(.CME ERROR: 30[^\n]*\n[^\n]*331[^\n]*\n"))
        << "once a code";
    for (const auto& [prompt, reply, reference] : references) {
        const HRESULT request = send_with(prompt, reply);
        recorder.events(expected.size() + 1);
        expected.push_back(sent(request, reference == own_reference ? last_reference() : reference));
        EXPECT_EQ(recorder.events(0), expected) << reply;
    }
}

TEST_F(session, more_to_send_keeps_the_link_where_the_modem_can) {
    modem.on("AT+CMMS=?", "\r\n+CMMS: (0-2)\r\n" + ok);
    attach_and_open();
    const HRESULT first = send("1", RIL_SENDOPT_PERSISTLINK);
    const HRESULT second = send("2", RIL_SENDOPT_PERSISTLINK);
    const HRESULT third = send("3");
    EXPECT_EQ(recorder.events(3), (events_t{sent(first), sent(second), sent(third)}));
    EXPECT_TRUE(first < second && second < third);
    EXPECT_EQ(modem.count("AT+CMMS=1"), 1U);
    for (const char* body : {"4", "5"}) {
        send(body, RIL_SENDOPT_PERSISTLINK);
        ASSERT_TRUE(modem.heard("AT+CMMS=1", body[0] - '2'));
        recorder.events(body[0] - '0');
        advance_clock(1000);  // the modem has forgotten it
    }
}

TEST_F(session, late_result_is_no_resend) {
    attach_and_open();
    size_t events = 0;
    size_t entries = 0;
    for (const bool modem_counts : {false, true}) {
        modem.once(">", "");
        const HRESULT first = send();
        ASSERT_TRUE(modem.heard(">", ++entries));
        const DWORD reference = last_reference();
        advance_clock(300'000);
        EXPECT_EQ(recorder.events(++events).back(), failed(first, RIL_E_NETWORKTIMEOUT));
        say_and_wait(fmt::format("\r\n+CMGS: {}\r\n", modem_counts ? reference % 255 + 1 : reference));
        const HRESULT again = send();
        EXPECT_EQ(recorder.events(events += 2).back(), sent(again, reference));
        EXPECT_EQ(modem.count(">"), entries);
        for (const int same_text : {1, 2}) {  // with references of the modem's own
            const HRESULT new_one = send();
            EXPECT_EQ(recorder.events(++events).back(), sent(new_one)) << same_text;
            EXPECT_NE(last_reference(), reference);
            ++entries;
        }
    }
}

TEST_F(session, a_late_result_in_the_middle_of_another_submission) {
    attach_and_open();
    modem.once(">", "\r\n+CMS ERROR: 332\r\n");
    send("a");
    recorder.events(1);
    const DWORD first = last_reference();
    modem.once(">", fmt::format("\r\n+CMGS: {}\r\n\r\nOK\r\n\r\n+CMS ERROR: 42\r\n", first));
    const HRESULT b = send("b");
    EXPECT_EQ(recorder.events(2).back(), failed(b, RIL_E_CMSERROR_BASE | 42)) << "the OK is not of this one, either";
    const HRESULT a = send("a");
    EXPECT_EQ(recorder.events(3).back(), sent(a, first));
    EXPECT_EQ(modem.count(">"), 2U);
}

TEST_F(session, a_late_result_that_may_be_of_another_is_nobodys) {
    attach_and_open();
    for (const char* body : {"a", "b"}) {
        modem.once(">", "\r\n+CMS ERROR: 332\r\n");
        send(body);
    }
    recorder.events(2);
    const DWORD second = last_reference();
    say_and_wait(fmt::format("\r\n+CMGS: {}\r\n", second % 255 + 1));  // of neither
    say_and_wait(fmt::format("\r\n+CMGS: {}\r\n", second));
    const HRESULT b = send("b");
    EXPECT_EQ(recorder.events(5).back(), sent(b, second));
    const HRESULT a = send("a");
    EXPECT_EQ(recorder.events(6).back(), sent(a));
    EXPECT_EQ(modem.count(">"), 3U);
}

TEST_F(session, an_unknown_submission_is_repeated_so_that_a_copy_is_rejected) {
    attach_and_open();
    const std::pair<const char*, DWORD> ends[] = {{"\r\n+CMS ERROR: 197\r\n", 0}, {"\r\n+CMGS: 9\r\n\r\nOK\r\n", 9}};
    events_t expected;
    for (const auto& [end, reference] : ends) {
        modem.once(">", "\r\n+CMS ERROR: 332\r\n");  // network timeout: sent or not
        modem.once(">", "\r\n+CMS ERROR: 42\r\n");   // says nothing of the first
        modem.once(">", end);
        expected.push_back(failed(send(), RIL_E_CMSERROR_BASE | 332));
        recorder.events(expected.size());
        const DWORD own = last_reference();
        const std::string first = modem.log().back();
        expected.push_back(failed(send(), RIL_E_CMSERROR_BASE | 42));
        recorder.events(expected.size());
        expected.push_back(sent(send(), reference != 0 ? reference : own));
        EXPECT_EQ(recorder.events(expected.size()), expected);
        EXPECT_EQ(first.substr(0, 5), ">0051");
        EXPECT_EQ(modem.log().back(), ">0055" + first.substr(5)) << "TP-RD, and all else the same";
    }
    modem.once(">", "\r\n+CMS ERROR: 197\r\n");
    expected.push_back(failed(send("another"), RIL_E_CMSERROR_BASE | 197));
    EXPECT_EQ(recorder.events(expected.size()), expected) << "not of a first attempt";
}

TEST_F(session, prompt_late_or_never) {
    attach_and_open();
    events_t expected;
    for (const auto& [silent, milliseconds] : {std::pair("AT+CMGS", 20'000), std::pair(">", 300'000)}) {
        const size_t before = modem.count(silent);
        modem.once(silent, "");
        const HRESULT first = send("first");
        const HRESULT second = send("second");
        ASSERT_TRUE(modem.heard(silent, before + 1));
        advance_clock(milliseconds - 1000);
        EXPECT_EQ(recorder.events(0), expected);
        modem.once("ATQ0V1E0", "\r\n+CMGS: 99\r\n\r\nOK\r\n" + ok);  // the late answer, and the one to AT
        advance_clock(1000);
        expected.insert(expected.end(), {failed(first, RIL_E_NETWORKTIMEOUT), sent(second)});
        EXPECT_EQ(recorder.events(expected.size()), expected) << "the late reference is not taken for the second's";
    }
    modem.once("AT+CMGS", "");
    const size_t before = modem.count("AT+CMGS");
    expected.push_back(sent(send()));
    ASSERT_TRUE(modem.heard("AT+CMGS", before + 1));
    advance_clock(19'000);
    modem.say("\r\n> ");
    EXPECT_EQ(recorder.events(expected.size()), expected);
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
    EXPECT_GT(RIL_SendMsg(handle, &largest, 0), 0) << "20 digits, 140 octets";
    recorder.events(1);
    EXPECT_THAT(modem.log(), Contains(HasSubstr("1481214365870921436587090004AD8C0B05")));
}

// ---- The network. ---------------------------------------------------------------------------------------------------

TEST_F(session, the_system_type_and_its_changes) {
    attach_and_open();
    const HRESULT asked = RIL_GetCurrentSystemType(handle);
    recorder.events(1);
    modem.say("\r\n+CREG: 2\r\n");
    modem.say("\r\n+CREG: 2\r\n");  // no change
    modem.say("\r\n+CREG: 5,\"00C3\",\"A12B\",6\r\n");
    modem.on("AT+CREG?", "\r\n+CREG: 2,1,\"00C3\",\"A12B\"\r\n" + ok);
    modem.on("AT+COPS?", "\r\n+COPS: 0,0,\"Net, Co\",7\r\n" + ok);
    modem.say("\r\n+CREG: 1,\"00C3\",\"A12B\"\r\n");  // no technology: it is asked for
    recorder.events(4);
    modem.once(">", "\r\n+CREG: 0\r\n+CMGS: 8\r\n" + ok);
    const HRESULT request = send();
    EXPECT_EQ(recorder.events(6),
              (events_t{result(asked, RIL_RESULT_OK, RIL_SYSTEMTYPE_GSM), system_type(RIL_SYSTEMTYPE_NONE),
                        system_type(RIL_SYSTEMTYPE_UMTS | RIL_SYSTEMTYPE_HSDPA), system_type(RIL_SYSTEMTYPE_UMTS),
                        system_type(RIL_SYSTEMTYPE_NONE), sent(request, 8)}))
        << "in the order of arrival, also in the middle of a submission";
}

// ---- Ends. ----------------------------------------------------------------------------------------------------------

TEST_F(session, detaching_ends_every_request) {
    const events_t expected = leave_requests_pending();
    detach_modem();
    EXPECT_THAT(recorder.events(0), testing::IsSupersetOf(expected));
    EXPECT_EQ(send(), RIL_E_RADIONOTPRESENT);
}

TEST_F(session, a_tty_that_hangs_up_ends_every_request) {
    events_t expected = leave_requests_pending();
    expected.push_back(system_type(RIL_SYSTEMTYPE_NONE));
    modem.hang_up();
    EXPECT_THAT(recorder.events(expected.size()), testing::UnorderedElementsAreArray(expected));
    const HRESULT into_the_void = send();  // no refusal, which would be final
    EXPECT_THAT(recorder.events(expected.size() + 1), Contains(failed(into_the_void, RIL_E_RADIONOTPRESENT)));
    EXPECT_EQ(RIL_GetCurrentSystemType(handle), RIL_E_RADIONOTPRESENT);
}

TEST_F(session, a_modem_that_comes_back_under_its_path_serves_the_same_session) {
    const lasting_path_t path(modem);
    ASSERT_EQ(attach_modem({path.link}), "");
    open();
    ASSERT_TRUE(modem.heard("AT+CMGL=4", 2));
    testing::internal::CaptureStderr();
    modem.on("AT+CMGD=3", "");
    receive(3, "before");
    recorder.events(1);
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    modem.hang_up();  // the delete comes too late
    recorder.events(2);
    modem.on("AT+CMGD=3", ok);
    modem.once("AT+CPIN?", "\r\n+CPIN: SIM PIN\r\n" + ok);
    modem.once("AT+CPIN?", "\r\n+CPIN: SIM PIN\r\n" + ok);
    modem.plug_in();
    path.renew();
    for (const size_t time : {2, 3}) {
        ASSERT_TRUE(heard_as_time_passes("AT+CPIN?", time)) << "a try that fails";
        EXPECT_EQ(RIL_GetCurrentSystemType(handle), RIL_E_RADIONOTPRESENT);
    }
    modem.once("AT+CMGL=4", "\r\n+CMGL: 3,1,," + with_pdu(incoming("before")) + "+CMGL: 5,0,," +
                                with_pdu(incoming("meanwhile")) + ok);
    ASSERT_TRUE(heard_as_time_passes("AT+CPIN?", 4)) << "the next one";
    ASSERT_TRUE(modem.heard("AT+CMGD=3") && modem.heard("AT+CMGD=5"));
    EXPECT_EQ(modem.count("AT+CPMS=\"SM\""), 3U) << "selected anew, whatever was selected before";
    const HRESULT request = send();
    EXPECT_EQ(recorder.events(5), (events_t{"message before", system_type(RIL_SYSTEMTYPE_NONE),
                                            system_type(RIL_SYSTEMTYPE_GSM), "message meanwhile", sent(request)}));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex(
                    "[^\n]* hung up[^\n]*\n[^\n]*--pin-file[^\n]*\n[^\n]* is back\n[^\n]* came again[^\n]*\n"));
    EXPECT_NE(attach_modem({path.link}), "") << "it is attached all the time";
}

TEST_F(session, detaching_ends_the_search_for_a_lost_modem_at_once) {
    const lasting_path_t path(modem);
    for (const bool in_the_set_up : {false, true}) {
        modem.on("AT+CPIN?", scripted_modem_t::line_and_ok("+CPIN: READY"));
        ASSERT_EQ(attach_modem({path.link}), "");
        open();
        const size_t before = recorder.events(0).size();
        modem.hang_up();
        recorder.events(before + 1);
        modem.on("AT+CPIN?", "");
        modem.plug_in();
        path.renew();
        const size_t asked = modem.count("AT+CPIN?");
        ASSERT_TRUE(!in_the_set_up || heard_as_time_passes("AT+CPIN?", asked + 1));
        auto detached = std::async(std::launch::async, detach_modem);
        EXPECT_EQ(detached.wait_for(900ms), std::future_status::ready);
    }
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
        EXPECT_EQ(ended.wait_for(50ms), std::future_status::timeout);
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

TEST_F(session, a_new_session_takes_the_place_of_one_that_was_never_ended) {
    attach_and_open();
    const HRIL old = handle;
    open();
    const RILMESSAGE message = outgoing("1", "card");
    EXPECT_LT(RIL_SendMsg(old, &message, 0), 0);
    receive(3, "x");
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    EXPECT_EQ(recorder.events(1), events_t{"message x"});
}

}  // namespace
