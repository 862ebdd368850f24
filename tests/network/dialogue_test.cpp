// The AT dialogue of one modem, octet for octet: V.250, 3GPP TS 27.007 and 27.005.
#include <random>

#include "tests/network/host.h"

namespace network {
namespace {

class dialogue_test : public network_test {};

struct exchange_t {
    std::string command;
    std::string reply;
};

TEST_F(dialogue_test, answers_as_a_terminal_sees_it) {
    host_t host(network_->link(alice));
    const exchange_t exchanges[] = {
        {"AT\r", "AT\r\r\nOK\r\n"},    // V.250: echo is on after power-on
        {"at\r\n", "at\r\r\nOK\r\n"},  // small letters; a line feed after the end means nothing
        {"xyATE\b+CSQ\r", "ATE\b+CSQ\r\r\n+CSQ: 21,99\r\n\r\nOK\r\n"},  // noise before it, and S5 editing
        {"ATE0\r", "ATE0\r\r\nOK\r\n"},
        {"AT +CSQ ; +CMGF?\r", "\r\n+CSQ: 21,99\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n"},
        {"A/", "\r\n+CSQ: 21,99\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n"},
        {"ATE0V1Q0X4&C1&D2S0=0+CMEE=0;+CREG=0\r", "\r\nOK\r\n"},  // as hosts begin
        {"ATS3?;S5?\r", "\r\n013\r\n\r\n008\r\n\r\nOK\r\n"},
        {"ATS3=10\r", "\r\nERROR\r\n"},
        {"AT+NONSENSE\r", "\r\nERROR\r\n"},
        {"AT+\r", "\r\nERROR\r\n"},
        {"AT=\r", "\r\nERROR\r\n"},
        {"AT+CSQ;+NONSENSE;+CSQ\r", "\r\n+CSQ: 21,99\r\n\r\nERROR\r\n"},  // the rest of the line is dropped
        {"AT+CGMI;+CGMM\r", "\r\nZPD\r\n\r\nEmulated modem\r\n\r\nOK\r\n"},
        {"ATI\r", "\r\nZPD\r\nEmulated modem\r\n1.0\r\n\r\nOK\r\n"},
        {"AT+CGSN\r", "\r\n001017000000011\r\n\r\nOK\r\n"},  // with its check digit
        {"AT+CIMI\r", "\r\n001011700000001\r\n\r\nOK\r\n"},
        {"AT+CNUM\r", "\r\n+CNUM: ,\"+491700000001\",145\r\n\r\nOK\r\n"},
        {"AT+CPIN?\r", "\r\n+CPIN: READY\r\n\r\nOK\r\n"},
        {"AT+COPS?\r", "\r\n+COPS: 0,0,\"Test Network\",0\r\n\r\nOK\r\n"},
        {"AT+COPS=3,2;+COPS?\r", "\r\n+COPS: 0,2,\"00101\",0\r\n\r\nOK\r\n"},
        {"AT+CREG?;+CGREG?;+CEREG?\r", "\r\n+CREG: 0,1\r\n\r\n+CGREG: 0,1\r\n\r\n+CEREG: 0,0\r\n\r\nOK\r\n"},
        {"AT+CREG=2;+CREG?;+CREG=0\r", "\r\n+CREG: 2,1,\"0001\",\"00000001\",0\r\n\r\nOK\r\n"},
        {"AT+CPIN=\"1234\"\r", "\r\nERROR\r\n"},
        {"AT+CMEE=1;+CPIN=\"1234\"\r", "\r\n+CME ERROR: 3\r\n"},
        {"AT+CMEE=2;+CPIN=\"1;2\"\r", "\r\n+CME ERROR: operation not allowed\r\n"},  // a quoted ";" parts nothing
        {"AT+CMGF=1\r", "\r\n+CMS ERROR: operation not supported\r\n"},
        {"AT+CMEE?;+CMEE=0\r", "\r\n+CMEE: 2\r\n\r\nOK\r\n"},
        {"AT+CMGF=1\r", "\r\n+CMS ERROR: 303\r\n"},
        {"AT+CMGF=?;+CSMS=?\r", "\r\n+CMGF: (0)\r\n\r\n+CSMS: (0,1)\r\n\r\nOK\r\n"},
        {"AT+CSMS=1;+CSMS?\r", "\r\n+CSMS: 1,1,0\r\n\r\n+CSMS: 1,1,1,0\r\n\r\nOK\r\n"},
        {"AT+CPMS=?\r", "\r\n+CPMS: (\"ME\",\"SM\"),(\"ME\",\"SM\"),(\"ME\",\"SM\")\r\n\r\nOK\r\n"},
        {"AT+CPMS=\"SM\"\r", "\r\n+CPMS: 0,20,0,100,0,100\r\n\r\nOK\r\n"},
        {"AT+CPMS?\r", "\r\n+CPMS: \"SM\",0,20,\"ME\",0,100,\"ME\",0,100\r\n\r\nOK\r\n"},
        {"AT+CPMS=\"SM\",\"MT\"\r", "\r\n+CMS ERROR: 303\r\n"},
        {"AT+CPMS=\r", "\r\n+CMS ERROR: 303\r\n"},
        {"AT+CNMI=?\r", "\r\n+CNMI: (0-2),(0-2),(0),(0),(0,1)\r\n\r\nOK\r\n"},
        {"AT+CNMI=2,1,0,1,0\r", "\r\n+CMS ERROR: 303\r\n"},  // no status reports here
        {"AT+CNMI=2,1;+CNMI?\r", "\r\n+CNMI: 2,1,0,0,0\r\n\r\nOK\r\n"},
        {"AT+CSCA?\r", "\r\n+CSCA: \"+999000001\",145\r\n\r\nOK\r\n"},
        {"AT+CSCA=\"+999000002\";+CSCA?\r", "\r\n+CSCA: \"+999000002\",145\r\n\r\nOK\r\n"},
        {"AT+CMGL=4;+CMGD=1,4;+CMGD=?\r", "\r\n+CMGD: (),(0-4)\r\n\r\nOK\r\n"},
        {"AT+CMGR=1\r", "\r\n+CMS ERROR: 321\r\n"},
        {"AT+CMGD=0\r", "\r\n+CMS ERROR: 321\r\n"},
        {"AT+CNMA\r", "\r\n+CMS ERROR: 340\r\n"},
        {"ATV0\r", "0\r"},
        {"AT+CSQ\r", "+CSQ: 21,99\r\n0\r"},
        {"ATD123\r", "4\r"},
        {"AT+CMGR=1\r", "+CMS ERROR: 321\r\n"},
        {"ATQ1\r", ""},
        {"ATQ0\r", "0\r"},
        {"ATZ\r", "\r\nOK\r\n"},
        {"AT\r", "AT\r\r\nOK\r\n"},
    };
    for (const auto& [command, reply] : exchanges) {
        host.expect(command, reply);
    }
}

// 3GPP TS 27.005 3.5.1. The first row is a good one: 1 octet for +491700000002.
TEST_F(dialogue_test, takes_or_refuses_a_submission) {
    const std::string good = "0001000C91947100000020000401AA";
    const auto host = this->host(alice);
    const exchange_t exchanges[] = {
        {"AT+CMGS=14\r", "\r\n> "},
        {good + "\x1a", sent(0)},
        {"AT+CMGS=14;+CSQ\r\n", "\r\n> "},  // a line feed that follows is none of the PDU
        {"\r\n" + good + "\r\x1a", "\r\n+CMGS: 1\r\n\r\n+CSQ: 21,99\r\n\r\nOK\r\n"},
        {"AT+CMGS=14\r", "\r\n> "},
        {"0001000C\x1b", "\r\nOK\r\n"},  // ESC: the host thinks better of it
        {"AT+CMGS=13\r", "\r\n> "},
        {good + "\x1a", "\r\n+CMS ERROR: 304\r\n"},  // announced one octet less
        {"AT+CMGS=14\r", "\r\n> "},
        {good + "0\x1a", "\r\n+CMS ERROR: 304\r\n"},
        {"AT+CMGS=14\r", "\r\n> "},
        {"Hello\x1a", "\r\n+CMS ERROR: 304\r\n"},
        {"AT+CMGS=14\r", "\r\n> "},
        {std::string(100'000 / 25, '0') + "\x1a", "\r\n+CMS ERROR: 304\r\n"},
        {"AT+CMGS=14\r", "\r\n> "},
        {"0000000C91947100000020000401AA\x1a", "\r\n+CMS ERROR: 304\r\n"},  // a DELIVER
        {"AT+CMGS=8\r", "\r\n> "},
        {"00010002D04100000400\x1a", "\r\n+CMS ERROR: 304\r\n"},  // cut off
        {"AT+CMGS=0\r", "\r\n+CMS ERROR: 304\r\n"},
        {"AT+CMGS=256\r", "\r\n+CMS ERROR: 304\r\n"},
        {"AT+CMGS=\"+491700000002\"\r", "\r\n+CMS ERROR: 304\r\n"},  // as text mode has it
        {"AT+CMGS\r", "\r\n+CMS ERROR: 304\r\n"},
        {"ATE1\r", "\r\nOK\r\n"},
        {"AT+CMGS=14\r", "AT+CMGS=14\r\r\n> "},
        {good + "\x1a", good + "\x1a" + sent(2)},  // the echo covers the PDU
    };
    for (const auto& [command, reply] : exchanges) {
        host->expect(command, reply);
    }
    EXPECT_TRUE(wait_for(&statistics_t::submitted, 3));
}

TEST_F(dialogue_test, gives_references_from_0_to_255_and_again) {
    const auto host = this->host(alice);
    for (unsigned i = 0; i < 258; ++i) {
        submit(*host, submit_to("+4912345", {1}));  // nobody has this number: stored for ever
        const std::string reply = sent(i % 256);
        EXPECT_EQ(host->read(reply.size()), reply);
    }
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 258));
}

TEST_F(dialogue_test, survives_garbage) {
    const auto host = this->host(alice);
    std::mt19937 random(20261121);
    const std::string pieces[] = {"AT", "+CMGS=", "+CMGL=4", "+CPMS=\"SM\"", "\"",      ";",          ",",
                                  "=",  "?",      "\r",      "\x1a",         "\x1b",    "A/",         "\b",
                                  "E1", "V0",     "255",     "+CNMI=2,2",    "+CSMS=1", "4294967297", "\n"};
    for (int i = 0; i < 20'000; ++i) {
        std::string noise(1, static_cast<char>(random()));
        host->send(random() % 4 == 0 ? noise : pieces[random() % std::size(pieces)]);
        if (i % 50 == 0) {
            host->send("\x1b\rATV1Q0\r");
            ASSERT_NE(host->read_until("OK\r\n"), "") << i;
        }
    }
    host->send("\x1b\rATZ\r");
    host->send("ATE0V1+CGMI;+NONSENSE\r");
    EXPECT_TRUE(host->read_until("\r\nZPD\r\n\r\nERROR\r\n").ends_with("\r\nZPD\r\n\r\nERROR\r\n"));
    for (int i = 0; i < 100; ++i) {
        host->send(i == 0 ? "AT" : std::string(4000, 'x'));
    }
    host->expect("\r", "\r\nERROR\r\n");
}

TEST_F(dialogue_test, answers_a_hundred_thousand_commands) {
    const auto host = this->host(alice);
    for (int i = 0; i < 1000; ++i) {
        std::string commands;
        std::string replies;
        for (int j = 0; j < 100; ++j) {
            commands += "AT+CSQ\r";
            replies += "\r\n+CSQ: 21,99\r\n\r\nOK\r\n";
        }
        host->send(commands);
        ASSERT_EQ(host->read(replies.size()), replies) << i;
    }
}

}  // namespace
}  // namespace network
