// What whole dialogues (replay_test.cpp) do not come to.
#include <gtest/gtest.h>

#include "radio/at_dialogue.h"

namespace {

using namespace radio;
using lines_t = std::vector<modem_line_t>;

constexpr limit_t any_limit = limit_t::setting;

TEST(dialogue, each_line_belongs_where_it_belongs) {
    const command_t query{.line = "AT+CREG?", .limit = any_limit, .shape = reply_shape_t::line, .prefixes = {"+CREG:"}};
    const command_t list{.line = "AT+CMGL=4", .limit = any_limit, .shape = reply_shape_t::pdus, .prefixes = {"+CMGL:"}};
    const command_t submit{.line = "AT+CMGS=2",
                           .limit = any_limit,
                           .shape = reply_shape_t::entry,
                           .prefixes = {"+CMGS:"},
                           .entry = "000102"};
    const lines_t listed = {{"+CMGL: 1,1,,3", "0002AABB"}};
    const lines_t delivered = {{"+CMT: ,3", "0002EEFF"}};
    const struct {
        const char* name;
        command_t command;
        std::vector<std::string> received;
        lines_t reply, unsolicited;
    } rows[] = {
        {"a late OK", query, {"OK", "OK", "+CREG: 2,1", "OK"}, {{"+CREG: 2,1", ""}}, {}},
        {"a line too long for any",
         query,
         {"+CREG: " + std::string(4096, '1'), "+CREG: 5", "OK"},
         {{"+CREG: 5", ""}},
         {}},
        {"an empty PDU",
         list,
         {"+CMGL: 1,1,,0", "", "+CMGL: 4,0,,3", "0002CCDD", "OK"},
         {{"+CMGL: 1,1,,0", ""}, {"+CMGL: 4,0,,3", "0002CCDD"}},
         {}},
        {"a delivery inside", list, {"+CMGL: 1,1,,3", "+CMT: ,3", "0002EEFF", "0002AABB", "OK"}, listed, delivered},
        {"a delivery around it", list, {"+CMT: ,3", "+CMGL: 1,1,,3", "0002AABB", "0002EEFF", "OK"}, listed, delivered},
        {"a delivery around a reply", query, {"+CMT: ,3", "+CREG: 0", "OK", "0002EEFF"}, {{"+CREG: 0", ""}}, delivered},
        {"echo", submit, {"AT+CMGS=2", ">", "000102\x1A", "+CMGS: 7", "OK"}, {{"+CMGS: 7", ""}}, {}},
    };
    for (const auto& row : rows) {
        at_dialogue_t dialogue;
        EXPECT_TRUE(dialogue.begin(row.command));
        for (const std::string& line : row.received) {
            dialogue.feed("\r\n" + line + "\r\n");
        }
        const reply_t reply = dialogue.end(reply_t::outcome_t::timeout);
        EXPECT_TRUE(reply.ok() && reply.lines == row.reply) << row.name;
        const std::deque<modem_line_t> unsolicited = dialogue.take_unsolicited();
        EXPECT_EQ(lines_t(unsolicited.begin(), unsolicited.end()), row.unsolicited) << row.name;
    }
}

TEST(dialogue, noise_is_not_the_end) {
    at_dialogue_t dialogue;
    EXPECT_FALSE(dialogue.begin({.line = "AT\rATD1", .limit = any_limit}));
    EXPECT_FALSE(
        dialogue.begin({.line = "AT+CMGS=1", .limit = any_limit, .shape = reply_shape_t::entry, .entry = "00\x1A"}));
    dialogue.feed("\r\nOK\r\n> " + std::string(100000, 'x') + "\r\n");  // no command, no prompt expected, overlong
    ASSERT_TRUE(dialogue.begin({.line = "AT", .limit = any_limit}));
    EXPECT_EQ(dialogue.feed(std::string("\0\0", 2) + "\r\n> \r\n"), "");
    EXPECT_TRUE(dialogue.in_progress());
    EXPECT_EQ(dialogue.end(reply_t::outcome_t::timeout).outcome, reply_t::outcome_t::timeout);
}

}  // namespace
