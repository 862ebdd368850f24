// Incoming messages over a pseudo-terminal: from the modem into the journal, from there to the driver, in every order
// that a modem or a failure may bring about.
#include <platform/linux/sqlite.h>

#include <map>

#include "tests/radio/session_fixture.h"

namespace {

using platform::testing::advance_clock;

const std::string ok = scripted_modem_t::ok;

class receiving : public session {
  protected:
    void list_once(const std::string& messages) { modem.once("AT+CMGL=4", messages + ok); }
    /// Up to here the modem has been told all that was due.
    events_t events_after_a_submission(size_t count) {
        const HRESULT request = send();
        events_t all = recorder.events(count + 1);
        EXPECT_EQ(all.back(), sent(request));
        all.pop_back();
        return all;
    }
    void in_journal(const std::string& statement) const {
        sqlite3* opened = nullptr;
        sqlite3_open((home / "journal.sqlite").c_str(), &opened);
        const platform::sqlite::connection_t connection(opened);
        sqlite3_busy_timeout(opened, 5000);
        EXPECT_EQ(sqlite3_exec(opened, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(opened);
    }
    void let_time_pass(uint64_t milliseconds, const std::string& until, size_t times) {
        for (int i = 0; i < 1000 && !modem.heard(until, times, std::chrono::milliseconds(5)); ++i) {
            advance_clock(milliseconds / 2);
        }
        EXPECT_EQ(modem.count(until), times) << until;
    }
};

TEST_F(receiving, the_modem_forgets_a_card_when_it_is_in_the_journal) {
    attach_and_open();
    recorder.block(true);
    modem.on("AT+CMGR=3", "\r\n+CMGR: 0,," + with_pdu(incoming("hello", "010201")) + ok);
    modem.say("\r\n+CMTI: \"SM\",3\r\n");
    ASSERT_TRUE(modem.heard("AT+CMGD=3")) << "a slow driver does not keep the modem waiting";
    EXPECT_EQ(recorder.events(1), events_t{"message hello"});
    EXPECT_TRUE(modem.count("AT+CSMS=0") == 1 && modem.count("AT+CNMI=2,1,0,0,0") == 1);

    EXPECT_EQ(last_message.cbSize, 0xAC4U);
    EXPECT_EQ(last_message.dwParams, 0x0D800A4EU);
    EXPECT_EQ(last_message.dwType, RIL_MSGTYPE_IN_DELIVER);
    EXPECT_EQ(last_message.dwFlags, RIL_MSGFLAG_HEADER);
    const RIL_IN_DELIVER& in = last_message.msgInDeliver;
    EXPECT_EQ(in.raOrigAddress.dwParams, 7U);
    EXPECT_EQ(in.raOrigAddress.dwType, RIL_ADDRTYPE_INTERNATIONAL);
    EXPECT_EQ(std::u16string(in.raOrigAddress.wszAddress), u"+491701234567");
    EXPECT_EQ(in.rmdDataCoding.dwAlphabet, RIL_DCSALPHABET_8BIT);
    EXPECT_EQ(platform::to_hex({in.rgbHdr, in.cbHdrLength}), "050423F423F40003010201");
    const SYSTEMTIME& time = in.stSCReceiveTime;  // 00:17:15 one hour east of Greenwich
    EXPECT_EQ((std::vector<WORD>{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond}),
              (std::vector<WORD>{2026, 11, 20, 23, 17, 15}));
}

TEST_F(receiving, texts_and_foreign_data_stay_untouched) {
    tpdu::deliver_t other_port = incoming("x");
    other_port.user_data[4] = 0xF5;
    tpdu::deliver_t ucs2 = incoming("x");
    ucs2.data_coding = 8;
    tpdu::deliver_t no_header = incoming("x");
    no_header.header_indicator = false;
    tpdu::deliver_t operator_name = incoming("ours");
    operator_name.originator = {tpdu::number_type_t::alphanumeric, 0, "Net\nCo"};
    attach_and_open();
    list_once("\r\n+CMGL: 1,0,," + with_pdu(other_port) + "+CMGL: 2,1,," + with_pdu(ucs2) + "+CMGL: 3,0,," +
              with_pdu(no_header) + "+CMGL: 4,0,,25\r\n000602812100...\r\n" +
              "+CMGL: 5,0,,3\r\n0006FFFF\r\n+CMGL: 6,3,," + with_pdu(incoming("to be sent")) + "+CMGL: 7,1,," +
              with_pdu(operator_name) + "+CMGL: what,is,this\r\n");
    modem.say("\r\n+CMTI: \"SM\",-1\r\n");  // odd: all is listed
    ASSERT_TRUE(modem.heard("AT+CMGD=7"));
    EXPECT_EQ(events_after_a_submission(1), events_t{"message ours"});
    EXPECT_EQ(std::u16string(last_message.msgInDeliver.raOrigAddress.wszAddress), u"Net\uFFFDCo");
    for (const char* left : {"1", "2", "3", "4", "5", "6"}) {
        EXPECT_EQ(modem.count(std::string("AT+CMGD=") + left), 0U);
    }
}

TEST_F(receiving, a_new_session_gets_what_is_incomplete_again_in_order) {
    list_once("\r\n+CMGL: 2,0,," + with_pdu(incoming("a2", "070302")) + "+CMGL: 9,1,," + with_pdu(incoming("whole")));
    list_once("\r\n+CMGL: 2,0,," + with_pdu(incoming("a1", "070301")));
    attach();
    ASSERT_TRUE(modem.heard("AT+CMGD=2", 2) && modem.heard("AT+CMGD=9"));
    // Each delete has its memory selected.
    std::string memory;
    std::vector<std::string> deleted;
    for (const std::string& line : modem.log()) {
        memory = line.starts_with("AT+CPMS=\"") ? line.substr(8) : memory;
        if (line.starts_with("AT+CMGD=")) {
            deleted.push_back(memory + line.substr(8));
        }
    }
    EXPECT_THAT(deleted, testing::UnorderedElementsAre("\"ME\"2", "\"SM\"2", "\"SM\"9"));
    open();
    const events_t first = {"message a2", "message whole", "message a1"};
    EXPECT_EQ(recorder.events(3), first);
    EXPECT_EQ(RIL_Deinitialize(handle), S_OK);
    open();
    EXPECT_EQ(recorder.events(5)[4], "message a1") << "the whole one has left";
    receive(4, "a3");  // of another message
    modem.on("AT+CMGR=5", "\r\n+CMGR: 0,," + with_pdu(incoming("last", "070303")) + ok);
    modem.say("\r\n+CMTI: \"SM\",5\r\n");
    ASSERT_TRUE(modem.heard("AT+CMGD=5"));
    EXPECT_EQ(events_after_a_submission(7)[6], "message last");
    radio::detach_modem();
    attach();
    open();
    EXPECT_EQ(events_after_a_submission(8).size(), 8U) << "nothing comes once more";
}

TEST_F(receiving, a_delete_that_fails_is_repeated_and_the_message_is_not) {
    modem.on("AT+CNMI=?", "\r\nERROR\r\n");  // what nearly all modems take is set then
    attach_and_open();
    EXPECT_EQ(modem.count("AT+CNMI=2,1"), 1U);
    for (int i = 0; i < 3; ++i) {
        modem.once("AT+CMGD=3", "\r\n+CMS ERROR: 320\r\n");
    }
    receive(3, "once");
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    for (size_t times = 2; times <= 4; ++times) {
        list_once("\r\n+CMGL: 3,1,," + with_pdu(incoming("once")));
        let_time_pass(30'000, "AT+CMGD=3", times);
    }
    EXPECT_EQ(events_after_a_submission(1), events_t{"message once"});
}

TEST_F(receiving, what_comes_both_ways_or_twice_is_handed_over_once) {
    attach_and_open();
    modem.say("\r\n+CMT: ," + with_pdu(incoming("twice")));
    receive(3, "twice");
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    receive(8, "twice");  // the network's repetition
    ASSERT_TRUE(modem.heard("AT+CMGD=8"));
    radio::detach_modem();
    attach();
    open();
    receive(8, "twice");  // after a restart
    ASSERT_TRUE(modem.heard("AT+CMGD=8", 2));
    EXPECT_EQ(events_after_a_submission(1), events_t{"message twice"});
}

TEST_F(receiving, a_journal_that_fails_leaves_the_message_where_it_is) {
    attach_and_open();
    in_journal("ALTER TABLE datagrams RENAME TO elsewhere");
    testing::internal::CaptureStderr();
    receive(3, "kept");
    receive(4, "kept as well");
    ASSERT_TRUE(modem.heard("AT+CMGR=4"));
    EXPECT_EQ(events_after_a_submission(0), events_t{});
    EXPECT_EQ(modem.count("AT+CMGD=3"), 0U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("[^\n]*cannot write the journal [^\n]*; messages stay on the modem\n"));
    in_journal("ALTER TABLE elsewhere RENAME TO datagrams");
    list_once("\r\n+CMGL: 3,1,," + with_pdu(incoming("kept")));
    let_time_pass(300'000, "AT+CMGD=3", 1);
    EXPECT_EQ(events_after_a_submission(2)[1], "message kept");
}

TEST_F(receiving, direct_delivery_is_acknowledged_when_it_is_safe_whatever_it_is) {
    modem.on("AT+CNMI=?", "\r\n+CNMI: (0-2),(0,2,3),(0,2),(0,2),(0,1)\r\n" + ok);
    modem.on("AT+CMGW", "\r\n> ");
    attach();
    EXPECT_TRUE(modem.count("AT+CSMS=1") == 1 && modem.count("AT+CNMI=2,2,0,0,0") == 1);
    modem.say("\r\n+CMT: ," + with_pdu(incoming("early")));  // nobody there
    ASSERT_TRUE(modem.heard("AT+CNMA", 1));
    open();
    recorder.block(true);
    modem.say("\r\n+CMT: \"Ann\"," + with_pdu(incoming("later")));
    ASSERT_TRUE(modem.heard("AT+CNMA", 2)) << "it is in the journal";
    recorder.block(false);
    tpdu::deliver_t text = incoming("x");
    text.header_indicator = false;
    const std::string pdu = platform::to_hex(*tpdu::encode_pdu({{}, *tpdu::encode(text)}));
    modem.say("\r\n+CMT: ," + with_pdu(text));
    ASSERT_TRUE(modem.heard("AT+CNMA", 3));
    EXPECT_TRUE(modem.heard(">" + pdu)) << "a text lies on the modem as if nobody had been there";
    modem.on("AT+CMGW", "\r\n+CMS ERROR: 322\r\n");
    modem.say("\r\n+CMT: ,5\r\n0004FFFFFFFF\r\n");  // cannot be decoded, and the modem is full
    ASSERT_TRUE(modem.heard("AT+CNMA", 4));
    modem.on("AT+CMGW", "\r\n> ");
    let_time_pass(300'000, ">0004FFFFFFFF", 1);
    modem.say("\r\n+CMT: ,23\r\n0004FFFFF\r\n+CMT: ,23\r\n");
    ASSERT_TRUE(modem.heard("AT+CNMA=2")) << "an octet was lost on the line";
    in_journal("ALTER TABLE datagrams RENAME TO elsewhere");
    modem.say("\r\n+CMT: ," + with_pdu(incoming("unsafe")));
    ASSERT_TRUE(modem.heard("AT+CNMA=2", 2)) << "the network is to keep it";
    EXPECT_EQ(events_after_a_submission(2), (events_t{"message early", "message later"}));
}

}  // namespace
