// The AT dialogue of one modem, octet for octet. Transcripts are files in tests/network/dialogues, and a file is a
// test: after ">" what the host sends, after "<" what must come, and nothing else, after "~" what must come in the end,
// whatever precedes it; "!" has an order of 'zpd fault', or
// "power-cycle", and "+" the milliseconds that pass.
#include <fstream>
#include <random>

#include "base/clock.h"
#include "tests/network/host.h"
#include "tests/transcript.h"

namespace network {
namespace {

class transcript : public network_test, public testing::WithParamInterface<std::filesystem::path> {
  protected:
    void power_cycle() {
        host_.reset();
        set_fault(alice, "hang-up=0");
        set_fault(alice, "return");
        host_ = std::make_unique<host_t>(network_->link(alice));
    }
    void follow(char mark, const std::string& text) {
        if (mark == '>') {
            host_->send(text);
        } else if (mark == '<') {
            host_->expect("", text);
        } else if (mark == '~') {
            EXPECT_TRUE(host_->read_until(text).ends_with(text)) << text;
        } else if (mark == '+') {
            base::advance_clock(std::stoul(text));
        } else if (text == "power-cycle") {
            power_cycle();
        } else {
            EXPECT_EQ(mark, '!') << text;
            set_fault(alice, text);
        }
    }
    std::unique_ptr<host_t> host_;
};

TEST_P(transcript, holds_octet_for_octet) {
    host_ = std::make_unique<host_t>(network_->link(alice));
    std::ifstream file(GetParam());
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        SCOPED_TRACE(GetParam().filename().string() + ":" + std::to_string(++number));
        if (!line.starts_with('#')) {
            follow(line[0], text_of(line));
        }
    }
    EXPECT_GT(number, 0);
}

INSTANTIATE_TEST_SUITE_P(modem, transcript, transcripts("network/dialogues"), name_of_transcript);

class dialogue_test : public network_test {};

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
    host->send("\x1b\rAT+CMGS=14\r" + std::string(4000, '0') + "\x1a\x1b\rATZ\r");
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
