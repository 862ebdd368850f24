// What the radio knows of its modem while it is in use, and what it makes of it.
#include "radio/modem_state.h"

#include <thread>

#include "radio/findings.h"
#include "tests/radio/session_fixture.h"

namespace {

using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

auto one_finding(bool hinders, const std::string& text) {
    return ElementsAre(
        AllOf(Field(&radio::finding_t::hinders, hinders), Field(&radio::finding_t::text, HasSubstr(text))));
}

std::vector<radio::finding_t> findings() {
    return radio::findings_of(*radio::modem_state());
}

bool soon(const std::function<bool()>& holds) {
    const auto until = std::chrono::steady_clock::now() + scripted_modem_t::patience;
    while (!holds() && std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return holds();
}

class modem_state : public session {
  protected:
    /// Of the third datagram of three.
    HRESULT send_third() {
        RILMESSAGE message = outgoing("+491701234567", "card");
        message.msgOutSubmit.rgbHdr[9] = message.msgOutSubmit.rgbHdr[10] = 3;
        return RIL_SendMsg(handle, &message, 0);
    }
};

TEST_F(modem_state, has_what_the_modem_told) {
    EXPECT_FALSE(radio::modem_state());
    modem.on("AT+CPMS?", scripted_modem_t::line_and_ok("+CPMS: \"ME\",0,20,\"ME\",0,20,\"SM\",20,20"));
    modem.on("AT+CGMI", scripted_modem_t::line_and_ok("A Maker"));
    modem.on("AT+CGMM", scripted_modem_t::line_and_ok("+CGMM: \"M-1\""));
    modem.on("AT+CGSN", scripted_modem_t::line_and_ok("351234567890123"));
    modem.on("AT+CSQ", scripted_modem_t::line_and_ok("+CSQ: 20,99"));
    attach_and_open();
    const radio::modem_state_t state = *radio::modem_state();
    EXPECT_TRUE(state.present);
    EXPECT_EQ(state.tty, options.tty);
    EXPECT_EQ(state.maker + ", " + state.model + ", " + state.serial_number, "A Maker, M-1, 351234567890123");
    EXPECT_EQ(state.signal, -73);
    EXPECT_EQ(state.sim, "ready");
    EXPECT_EQ(state.domains.at(0), (radio::domain_state_t{"+CREG", 1, "GSM"}));
    EXPECT_EQ(state.system_type, RIL_SYSTEMTYPE_GSM);
    EXPECT_EQ(state.delivery, "new messages are stored and announced (AT+CNMI=2,1,0,0,0)");
    EXPECT_THAT(findings(), one_finding(true, "SM holds 20 of 20 messages: nothing more can be received"));

    receive(3, "hello");
    EXPECT_TRUE(soon([] { return !findings()[0].hinders; }));
    EXPECT_THAT(findings(), one_finding(false, "SM holds 19 of 20")) << "a card was taken out";
}

TEST_F(modem_state, of_a_datagram_that_is_refused_owed_and_sent) {
    attach_and_open();
    modem.once(">", "\r\n+CMS ERROR: 8\r\n");
    send_third();
    recorder.events(1);
    EXPECT_THAT(findings(), one_finding(true, "(+CMS ERROR: 8): ask the operator"));

    modem.once(">", "");
    send_third();
    ASSERT_TRUE(modem.heard(">", 2));
    base::advance_clock(40'000);
    EXPECT_THAT(findings().back().text,
                testing::MatchesRegex("the modem owes a result for datagram 3, at most (60|59) s "
                                      "more"));
    EXPECT_FALSE(findings().back().hinders);
    modem.say("\r\n+CMGS: 7\r\n" + std::string(modem.ok));
    recorder.events(2);
    EXPECT_THAT(findings(), IsEmpty());
    EXPECT_TRUE(radio::modem_state()->refusals.at(0).overcome);

    modem.once(">", "");
    send_third();
    ASSERT_TRUE(modem.heard(">", 3));
    base::advance_clock(100'000);
    recorder.events(3);
    EXPECT_THAT(findings(), one_finding(true, "did not tell what became of a datagram"));
}

TEST_F(modem_state, of_a_modem_that_loses_its_network_and_goes) {
    attach_and_open();
    modem.say("\r\n+CREG: 3\r\n");
    recorder.events(1);
    EXPECT_THAT(findings(), one_finding(true, "not registered with a network: denied"));
    modem.hang_up();
    EXPECT_TRUE(soon([] { return !radio::modem_state()->present; }));
    EXPECT_THAT(findings(), one_finding(true, "the modem on " + options.tty + " has hung up"));
}

}  // namespace
