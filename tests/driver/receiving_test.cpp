// From a notification of the radio to a file in the incoming directory.

#include <gmock/gmock.h>

#include <ctime>

#include "tests/driver/matches.h"
#include "tests/driver/phone.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class receiving_test : public driver_test {
  protected:
    receiving_test() {
        phone.preset("activated", 1);
        phone.preset_logging();
    }
    void part(unsigned reference, unsigned amount, unsigned ordinal, const std::string& data,
              const wide_string_t& address = TEXT("+123"), bool long_reference = false) {
        radio.deliver(deliver_message(part_header(reference, amount, ordinal, long_reference), data, address));
    }
};

TEST_F(receiving_test, filter) {
    const struct {
        const char* what;
        std::string header, data;
        void (*change)(RILMESSAGE&);
        std::string line;  // of the log
        const char* card = nullptr;
    } cases[] = {
        {"as it should be", port_header, "card", [](RILMESSAGE&) {}, "INFO incoming message address '+123'",
         "+123:card"},
        {"no type", port_header, "card", [](RILMESSAGE& m) { m.dwParams = 0x80; },
         "ERROR dwParams=0x00000080, RIL_PARAM_M_TYPE bit not set, skipping message"},
        {"another type", port_header, "card", [](RILMESSAGE& m) { m.dwType = 0x00010002; }, ""},
        {"7-bit", port_header, "card", [](RILMESSAGE& m) { m.msgInDeliver.rmdDataCoding.dwAlphabet = 1; },
         "ERROR msgInDeliver.rmdDataCoding.dwAlphabet=1, which is not RIL_DCSALPHABET_8BIT"},
        {"UCS2", port_header, "card", [](RILMESSAGE& m) { m.msgInDeliver.rmdDataCoding.dwAlphabet = 3; },
         "ERROR msgInDeliver.rmdDataCoding.dwAlphabet=3, which is not RIL_DCSALPHABET_8BIT"},
        {"alphabet not told", port_header, "card", [](RILMESSAGE& m) { m.msgInDeliver.rmdDataCoding = {}; },
         "INFO flag RIL_PARAM_MDCS_ALPHABET not set in msgInDeliver.rmdDataCoding.dwParams: assuming 8bit data",
         "+123:card"},
        {"coding not told", port_header, "card",
         [](RILMESSAGE& m) {
             m.dwParams &= ~RIL_PARAM_M_DATACODING;
             m.msgInDeliver.rmdDataCoding.dwAlphabet = 3;
         },
         "INFO processing gsm/cdma incoming message", "+123:card"},
        {"no header length", port_header, "card", [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_HDRLENGTH; },
         "ERROR flag RIL_PARAM_M_HDRLENGTH is not set in dwParams; skipping message"},
        {"no message length", port_header, "card", [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_MSGLENGTH; },
         "ERROR flag RIL_PARAM_M_MSGLENGTH is not set in dwParams; skipping message"},
        {"no header", port_header, "card", [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_HDR; },
         "ERROR flag RIL_PARAM_M_HDR is not set in dwParams; skipping message"},
        {"no message", port_header, "card", [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_MSG; },
         "ERROR flag RIL_PARAM_M_MSG is not set in dwParams; skipping message"},
        {"no address", port_header, "card", [](RILMESSAGE& m) { m.msgInDeliver.raOrigAddress.dwParams = 0; },
         "INFO incoming message address 'unknown'", "unknown:card"},
        {"empty address", port_header, "card", [](RILMESSAGE& m) { m.msgInDeliver.raOrigAddress.wszAddress[0] = 0; },
         "INFO incoming message address 'empty'", "empty:card"},
        {"surrogates", port_header, "card",
         [](RILMESSAGE& m) {
             wide_string_t(TEXT("\xD83D\xDE00\xDE00")).copy(m.msgInDeliver.raOrigAddress.wszAddress, 3);
         },
         "INFO incoming message address '\xF0\x9F\x98\x80\xEF\xBF\xBD"
         "3'",
         "\xF0\x9F\x98\x80\xEF\xBF\xBD"
         "3:card"},
        {"empty header", "", "card", [](RILMESSAGE&) {}, "ERROR no user data header present => ignoring the message"},
        {"broken header", port_header + "\x05", "card", [](RILMESSAGE&) {},
         "ERROR invalid datagram header => ignoring the message"},
        {"no port", part_header(1, 1, 1).substr(0, 5), "card", [](RILMESSAGE&) {},
         "ERROR destination port (-1) is not equal to 0x23F4 => ignoring the message"},
        {"next port", std::string("\x05\x04\x23\xF5\0\0", 6), "card", [](RILMESSAGE&) {},
         "ERROR destination port (9205) is not equal to 0x23F4 => ignoring the message"},
        {"8-bit port", std::string("\x04\x02\xF4\x23", 4), "card", [](RILMESSAGE&) {},
         "ERROR destination port (244) is not equal to 0x23F4 => ignoring the message"},
        {"first of two ports", std::string("\x04\x02\xF4\x23", 4) + port_header, "card", [](RILMESSAGE&) {},
         "ERROR destination port (244) is not equal to 0x23F4 => ignoring the message"},
        {"any source port, unknown element", std::string("\x70\0", 2) + "\x05\x04\x23\xF4\x12\x34", "card",
         [](RILMESSAGE&) {}, "INFO udh ie 2 out of 2: '{ie:APPPORT16,src:0x1234,dst:0x23F4}'", "+123:card"},
        {"every octet", port_header, std::string("\0\r\n:\x1A\xFF", 6), [](RILMESSAGE&) {},
         "INFO 00: 00 0D 0A 3A . 1A FF                                   || \\0\\r\\n:\\x{1a}\\x{ff}"},
    };
    phone.start();
    std::vector<std::string> expected_cards;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        RILMESSAGE message = deliver_message(row.header, row.data);
        row.change(message);
        const size_t before = row.line.empty() ? 0 : phone.logged(row.line);
        radio.deliver(message);
        if (!row.line.empty()) {
            EXPECT_EQ(phone.logged(row.line), before + 1) << row.line;
        }
        if (row.card) {
            expected_cards.emplace_back(row.card);
        }
        if (row.data != "card") {
            expected_cards.push_back("+123:" + row.data);
        }
        std::sort(expected_cards.begin(), expected_cards.end());
        EXPECT_EQ(phone.cards(), expected_cards);
    }
}

TEST_F(receiving_test, cdma_is_taken_as_it_is) {
    phone.start();
    for (const wide_string_t address : {TEXT("555"), TEXT("")}) {
        RILMESSAGE message{};
        message.dwParams = RIL_PARAM_M_TYPE;
        message.dwType = RIL_MSGTYPE_IN_CDMADELIVER;
        RIL_IN_CDMADELIVER& deliver = message.msgInCDMADeliver;
        address.copy(deliver.raOrigAddress.wszAddress, MAXLENGTH_ADDRESS);
        deliver.cbHdrLength = static_cast<DWORD>(port_header.size());
        port_header.copy(reinterpret_cast<char*>(deliver.rgbHdr), MAXLENGTH_HDR);
        deliver.cchMsgLength = 4;
        std::string("card").copy(reinterpret_cast<char*>(deliver.rgbMsg), MAXLENGTH_MSG);
        radio.deliver(message);
    }
    EXPECT_THAT(phone.cards(), ElementsAre("555:card", "empty:card"));
    EXPECT_EQ(phone.logged("INFO incoming CDMA message: dwType=RIL_MSGTYPE_IN_CDMADELIVER"), 2u);
}

TEST_F(receiving_test, parts_come_together) {
    phone.start();
    part(1, 2, 2, "B");
    EXPECT_THAT(phone.cards(), IsEmpty());
    part(1, 2, 1, "A");
    EXPECT_THAT(phone.cards(), ElementsAre("+123:AB")) << "part 2 first";
    part(1, 2, 1, "c");
    part(1, 2, 1, "x");
    part(1, 2, 2, "d");
    EXPECT_EQ(phone.cards().back(), "+123:cd") << "the same reference again, a repeated part dropped";
    part(2, 2, 1, "1", TEXT("+1"));
    part(2, 2, 1, "2", TEXT("+2"));
    part(2, 3, 1, "3", TEXT("+1"));
    part(2, 2, 2, "1", TEXT("+1"));
    part(2, 2, 2, "2", TEXT("+2"));
    EXPECT_THAT(phone.cards(), ElementsAre("+123:AB", "+123:cd", "+1:11", "+2:22")) << "senders and amounts apart";
    part(2, 0, 1, "x");
    part(3, 2, 3, "x");
    part(3, 2, 1, "e");
    part(3, 2, 200, "x");
    part(3, 2, 2, "f");
    EXPECT_EQ(phone.cards().at(2), "+123:ef") << "out of bounds dropped";
    EXPECT_EQ(phone.logged("ERROR adding of a diagram failed"), 4u);
    EXPECT_EQ(phone.logged("ERROR datagram processing failed, dropping it"), 4u);
    part(0, 1, 1, "zero", TEXT("0"), true);
    EXPECT_EQ(phone.cards().back(), "0:zero") << "reference 0, one part";
    std::string whole;
    for (unsigned ordinal = 255; ordinal >= 1; --ordinal) {
        const std::string data(120, static_cast<char>(ordinal));
        whole.insert(0, data);
        part(0xFFFF, 255, ordinal, data, TEXT("long"), true);
    }
    EXPECT_EQ(phone.cards().back(), "long:" + whole);
}

TEST_F(receiving_test, file_name_and_content) {
    phone.start();
    const time_t before = time(nullptr);
    radio.deliver(deliver_message(port_header, "ABC"));
    radio.deliver(deliver_message(port_header, "ABC"));
    const auto stored = phone.incoming();
    ASSERT_EQ(stored.size(), 2u) << "the same card twice is two files";
    for (const stored_t& file : stored) {
        EXPECT_THAT(file.name, matches("[0-9a-f]{32}"));
        EXPECT_GE(std::stoll(file.time), before);
        EXPECT_LE(std::stoll(file.time), time(nullptr));
        EXPECT_EQ(file.address, "+123");
        EXPECT_EQ(file.data, "ABC");
        EXPECT_EQ(phone.logged(R"(DEBUG successfully saved message as '\Application Data\PUBLIC\VARKON\ZPD\INCOMING\)" +
                               file.name + "'"),
                  1u);
    }
}

TEST_F(receiving_test, bound_of_the_directory) {
    phone.preset("incoming_dir_size", 2);
    phone.start();
    for (int i = 0; i < 5; ++i) {
        radio.deliver(deliver_message(port_header, "card"));
    }
    EXPECT_EQ(phone.incoming().size(), 3u) << "one more than the bound";
    EXPECT_EQ(phone.logged("ERROR incoming directory full, dropping message"), 2u);
    expect_in_order(phone.log(), "NOTICE Can't read a single file, directory not present or empty?",
                    "DEBUG incoming_dir_size=2, counter=2, directory_is_not_full=1",
                    "DEBUG incoming_dir_size=2, counter=3, directory_is_not_full=0");
    phone.request(ZPD_IOCTL_INCOMING_DIR_SIZE, u8(1) + u32(0));
    radio.deliver(deliver_message(port_header, "card"));
    EXPECT_EQ(phone.incoming().size(), 4u);
    EXPECT_EQ(phone.logged("DEBUG incoming_dir_size is zero, don't check for directory size"), 1u);
}

TEST_F(receiving_test, nothing_is_stored_while_not_activated) {
    phone.preset("activated", 0);
    phone.start();
    radio.deliver(deliver_message(port_header, "lost"));
    part(1, 2, 1, "A");
    EXPECT_EQ(phone.logged("ERROR the daemon state is 'not activated' => dropping the message"), 1u);
    phone.request(ZPD_IOCTL_ACTIVATION, u8(1) + u8(1));
    part(1, 2, 2, "B");
    EXPECT_THAT(phone.cards(), ElementsAre("+123:AB"));
}

TEST_F(receiving_test, applications_that_are_gone_are_forgotten) {
    phone.preset("applications", REG_BINARY, "a;b;c");
    phone.install("b");
    phone.start();
    radio.deliver(deliver_message(port_header, "one"));
    EXPECT_EQ(phone.registry("applications"), "b;c") << "c was not looked at";
    EXPECT_EQ(phone.registry("activated"), u32(1));
    std::filesystem::remove(phone.home() / "Applications/Install/b");
    radio.deliver(deliver_message(port_header, "two"));
    EXPECT_EQ(phone.registry("applications"), "");
    EXPECT_EQ(phone.registry("activated"), u32(0));
    EXPECT_THAT(phone.cards(), ElementsAre("+123:one"));
    EXPECT_EQ(phone.request(ZPD_IOCTL_ACTIVATION, u8(0)), done(u8(0))) << "switched itself off";
}

}  // namespace
