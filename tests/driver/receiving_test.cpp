// From a notification of the radio to a file in the incoming directory.

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <thread>

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

RILMESSAGE cdma_message(const wide_string_t& address) {
    RILMESSAGE message{};
    message.dwParams = RIL_PARAM_M_TYPE;
    message.dwType = RIL_MSGTYPE_IN_CDMADELIVER;
    RIL_IN_CDMADELIVER& deliver = message.msgInCDMADeliver;
    std::ranges::copy(address, deliver.raOrigAddress.wszAddress);
    std::ranges::copy(port_header, deliver.rgbHdr);
    std::ranges::copy(std::string("card"), deliver.rgbMsg);
    deliver.cbHdrLength = static_cast<DWORD>(port_header.size());
    deliver.cchMsgLength = 4;
    return message;
}

// What is no card for us is dropped, and the log says why.
TEST_F(receiving_test, filter) {
    void (*const changes[])(RILMESSAGE&) = {
        [](RILMESSAGE& m) { m.dwParams = 0x80; },
        [](RILMESSAGE& m) { m.dwType = 0x00010002; },
        [](RILMESSAGE& m) { m.msgInDeliver.rmdDataCoding.dwAlphabet = 1; },
        [](RILMESSAGE& m) { m.msgInDeliver.rmdDataCoding.dwAlphabet = 3; },
        [](RILMESSAGE& m) { m.msgInDeliver.rmdDataCoding = {}; },
        [](RILMESSAGE& m) {
            m.msgInDeliver.rmdDataCoding.dwAlphabet = 3;
            m.dwParams &= ~RIL_PARAM_M_DATACODING;
        },
        [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_HDRLENGTH; },
        [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_MSGLENGTH; },
        [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_HDR; },
        [](RILMESSAGE& m) { m.dwParams &= ~RIL_PARAM_M_MSG; },
        [](RILMESSAGE& m) { m.msgInDeliver.raOrigAddress.dwParams = 0; },
        [](RILMESSAGE& m) { m.msgInDeliver.raOrigAddress.wszAddress[0] = 0; },
        // Of a CDMA message neither coding nor flags are looked at.
        [](RILMESSAGE& m) { m = cdma_message(TEXT("555")); },
        [](RILMESSAGE& m) { m = cdma_message(TEXT("")); },
        // Headers: none, a broken one, one without a port, other ports, the right one behind an unknown element.
        [](RILMESSAGE& m) { m = deliver_message("", "card"); },
        [](RILMESSAGE& m) { m = deliver_message(port_header + "\x05", "card"); },
        [](RILMESSAGE& m) { m = deliver_message(part_header(1, 1, 1).substr(0, 5), "card"); },
        [](RILMESSAGE& m) { m = deliver_message(std::string("\x05\x04\x23\xF5\0\0", 6), "card"); },
        [](RILMESSAGE& m) { m = deliver_message("\x04\x02\xF4\x23", "card"); },
        [](RILMESSAGE& m) { m = deliver_message("\x04\x02\xF4\x23" + port_header, "card"); },
        [](RILMESSAGE& m) { m = deliver_message(std::string("\x70\0", 2) + "\x05\x04\x23\xF4\x12\x34", "card"); },
    };
    phone.start();
    for (const auto change : changes) {
        RILMESSAGE message = deliver_message(port_header, "card");
        change(message);
        radio.deliver(message);
    }
    const RILMESSAGE message = deliver_message(port_header, "card");
    radio.notify(RIL_NOTIFY_MESSAGE, &message, sizeof message - 1);
    expect_log();
    EXPECT_THAT(phone.cards(), ElementsAre("+123:card", "+123:card", "+123:card", "555:card", "empty:card",
                                           "empty:card", "unknown:card"));
}

// Line by line, from the first notification to the file.
TEST_F(receiving_test, a_card_received) {
    phone.start();
    radio.question(1);
    phone.request(ZPD_IOCTL_VERSION);  // the round has ended
    part(0x2A, 2, 2, "DEF");
    part(0x2A, 2, 1, "ABC");
    expect_log();
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
    const std::string data("\0\r\n:\x1A\xFF", 6);
    const std::string line =
        "INFO 00: 00 0D 0A 3A . 1A FF                                   || \\0\\r\\n:\\x{1a}\\x{ff}";
    for (int i = 0; i < 2; ++i) {
        radio.deliver(deliver_message(port_header, data, TEXT("\xD83D\xDE00\xDE00")));
    }
    EXPECT_EQ(phone.logged(line), 2u);
    EXPECT_EQ(phone.incoming().size(), 2u) << "the same card twice is two files";
    for (const auto& [name, octets] : phone.incoming()) {
        EXPECT_EQ(name.size(), 32u);
        EXPECT_EQ(name.find_first_not_of("0123456789abcdef"), std::string::npos) << name;
        const std::string seconds = octets.substr(0, octets.find(':'));
        EXPECT_GE(std::stoll(seconds), before);
        EXPECT_LE(std::stoll(seconds), time(nullptr));
        EXPECT_EQ(octets, seconds + ":\xF0\x9F\x98\x80\xEF\xBF\xBD\n" + data);
        EXPECT_EQ(phone.logged(R"(DEBUG successfully saved message as '\Application Data\PUBLIC\VARKON\ZPD\INCOMING\)" +
                               name + "'"),
                  1u);
    }
}

// Each comes on a thread of its own, and each of the lives begins within the same second as a rule.
TEST_F(receiving_test, equal_cards_have_files_of_their_own) {
    for (int life = 0; life < 3; ++life) {
        phone.start();
        for (int i = 0; i < 10; ++i) {
            std::jthread([&] { radio.deliver(deliver_message(port_header, "card")); });
        }
        phone.stop();
    }
    EXPECT_EQ(phone.incoming().size(), 30u);
}

TEST_F(receiving_test, without_a_digest_there_is_no_name) {
    phone.start();
    platform::testing::fail_calls("md5_digest", 8);
    for (const char* const card : {"lost", "kept"}) {
        radio.deliver(deliver_message(port_header, card));
    }
    EXPECT_THAT(phone.cards(), ElementsAre("+123:kept"));
    EXPECT_EQ(phone.logged("ERROR no digest for the name of the message => message can't be saved"), 1u);
}

TEST_F(receiving_test, bound_of_the_directory) {
    phone.preset("incoming_dir_size", 2);
    phone.start();
    for (int i = 0; i < 5; ++i) {
        radio.deliver(deliver_message(port_header, "card"));
    }
    EXPECT_EQ(phone.incoming().size(), 3u) << "one more than the bound";
    phone.request(ZPD_IOCTL_INCOMING_DIR_SIZE, u8(1) + u32(0));
    radio.deliver(deliver_message(port_header, "card"));
    EXPECT_EQ(phone.incoming().size(), 4u);
    expect_log();
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
