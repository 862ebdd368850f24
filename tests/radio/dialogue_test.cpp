// Exchanges octet by octet, with foreign lines at every line boundary; whole dialogues are in replay_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "radio/at_dialogue.h"

namespace {

using namespace radio;
using lines_t = std::vector<modem_line_t>;

struct dialogue_t {
    const char* name;
    command_t command;
    std::string received;
    reply_t::outcome_t outcome;
    lines_t lines;
};

constexpr limit_t any_limit = limit_t::setting;
const std::string pdu = "0011000C91947110325476";

std::vector<dialogue_t> dialogues() {
    const command_t setting{.line = "ATE0", .limit = any_limit};
    const command_t query{.line = "AT+CREG?", .limit = any_limit, .prefixes = {"+CREG:"}, .needs_line = true};
    const command_t list{.line = "AT+CMGL=4", .limit = any_limit, .prefixes = {"+CMGL:"}, .pdu_follows = true};
    const command_t submit{.line = "AT+CMGS=10", .limit = any_limit, .prefixes = {"+CMGS:"}, .entry = pdu};
    const lines_t registered = {{"+CREG: 2,1", ""}};
    const lines_t listed = {{"+CMGL: 1,1,,3", "0002AABB"}, {"+CMGL: 4,0,,3", "0002CCDD"}};
    const lines_t one_empty = {{"+CMGL: 1,1,,0", ""}, {"+CMGL: 4,0,,3", "0002CCDD"}};
    const lines_t sent = {{"+CMGS: 7", ""}};
    const std::string echoed = "AT+CMGS=10\r\r\n> " + pdu + "\x1A\r\n+CMGS: 7\r\n\r\nOK\r\n";
    using enum reply_t::outcome_t;
    return {
        {"setting", setting, "\r\nOK\r\n", ok, {}},
        {"refusal", setting, "\r\n+CMS ERROR: 303\r\n", error, {}},
        {"query", query, "\r\n+CREG: 2,1\r\n\r\nOK\r\n", ok, registered},
        {"late OK first", query, "\r\nOK\r\n\r\nOK\r\n\r\n+CREG: 2,1\r\n\r\nOK\r\n", ok, registered},
        {"list", list, "\r\n+CMGL: 1,1,,3\r\n0002AABB\r\n+CMGL: 4,0,,3\r\n0002CCDD\r\n\r\nOK\r\n", ok, listed},
        {"an empty PDU", list, "\r\n+CMGL: 1,1,,0\r\n\r\n+CMGL: 4,0,,3\r\n0002CCDD\r\n\r\nOK\r\n", ok, one_empty},
        {"submission", submit, "\r\n> \r\n+CMGS: 7\r\n\r\nOK\r\n", ok, sent},
        {"submission with echo", submit, echoed, ok, sent},
        {"refused before the prompt", submit, "\r\n+CMS ERROR: 302\r\n", error, {}},
        {"refused after it", submit, "\r\n> \r\n+CMS ERROR: 38\r\n", error, {}},
    };
}

struct outcome_t {
    std::string written;
    reply_t reply;
    lines_t unsolicited;
};

outcome_t play(const command_t& command, const std::string& received) {
    at_dialogue_t dialogue;
    outcome_t outcome;
    outcome.written = dialogue.begin(command).value_or("refused");
    for (const char octet : received) {
        outcome.written += dialogue.feed({&octet, 1});
    }
    EXPECT_FALSE(dialogue.in_progress());
    outcome.reply = dialogue.end(reply_t::outcome_t::timeout);
    std::ranges::copy(dialogue.take_unsolicited(), std::back_inserter(outcome.unsolicited));
    return outcome;
}

void expect(const dialogue_t& row, const outcome_t& outcome, const lines_t& unsolicited) {
    EXPECT_EQ(outcome.reply.outcome, row.outcome);
    EXPECT_EQ(outcome.reply.lines, row.lines);
    EXPECT_EQ(outcome.unsolicited, unsolicited);
    const bool prompted = row.received.find('>') != std::string::npos;
    EXPECT_EQ(outcome.written, row.command.line + "\r" + (prompted ? row.command.entry + "\x1A" : ""));
}

TEST(dialogue, foreign_lines_at_every_boundary) {
    const std::pair<std::string, modem_line_t> foreign[] = {
        {"\r\n+CMTI: \"SM\",7\r\n", {"+CMTI: \"SM\",7", ""}},
        {"\r\nRING\r\n", {"RING", ""}},
        {"\r\nNO CARRIER\r\n", {"NO CARRIER", ""}},  // a call that nobody took
        {"\r\n+CMT: ,3\r\n0002EEFF\r\n", {"+CMT: ,3", "0002EEFF"}},
    };
    for (const dialogue_t& row : dialogues()) {
        SCOPED_TRACE(row.name);
        for (size_t end = row.received.find('\n'); end != std::string::npos; end = row.received.find('\n', end + 1)) {
            for (const auto& [text, line] : foreign) {
                std::string received = row.received;
                // An empty PDU cannot be told from one that is still to come.
                const bool ambiguous = row.lines.size() == 2 && row.lines[0].pdu.empty() && line.pdu.empty() == false;
                received.insert(end + 1, text);
                if (!ambiguous) {
                    expect(row, play(row.command, received), {line});
                }
            }
        }
    }
}

TEST(dialogue, a_delivery_keeps_its_pdu_across_a_reply) {
    const command_t read{.line = "AT+CMGR=1", .limit = any_limit, .prefixes = {"+CMGR:"}, .pdu_follows = true};
    const outcome_t outcome = play(read, "\r\n+CMGR: 1,,3\r\n\r\n+CMT: ,3\r\n0002EEFF\r\n0002AABB\r\n\r\nOK\r\n");
    EXPECT_EQ(outcome.reply.lines, (lines_t{{"+CMGR: 1,,3", "0002AABB"}}));
    EXPECT_EQ(outcome.unsolicited, (lines_t{{"+CMT: ,3", "0002EEFF"}}));

    at_dialogue_t dialogue;  // the PDU comes when the command is over
    static_cast<void>(dialogue.begin({.line = "AT", .limit = any_limit}));
    dialogue.feed("\r\n+CMT: ,3\r\n\r\nOK\r\n0002EEFF\r\n");
    EXPECT_EQ(dialogue.take_unsolicited(), (std::deque<modem_line_t>{{"+CMT: ,3", "0002EEFF"}}));
}

TEST(dialogue, noise_is_not_the_end) {
    at_dialogue_t dialogue;
    EXPECT_FALSE(dialogue.begin({.line = "AT\rATD1", .limit = any_limit}));
    EXPECT_FALSE(dialogue.begin({.line = "AT+CMGS=1", .limit = any_limit, .entry = "00\x1A"}));
    dialogue.feed("\r\nOK\r\n> " + std::string(100000, 'x') + "\r\n");  // no command, no prompt expected, overlong
    ASSERT_TRUE(dialogue.begin({.line = "AT", .limit = any_limit}));
    EXPECT_EQ(dialogue.feed(std::string("\0\0", 2) + "\r\n> \r\n"), "");
    EXPECT_TRUE(dialogue.in_progress());
    EXPECT_EQ(dialogue.end(reply_t::outcome_t::timeout).outcome, reply_t::outcome_t::timeout);
}

}  // namespace
