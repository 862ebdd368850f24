// The entry points, the dispatch of control requests, their buffers, and the settings. What a test plays stands in
// requests/NAME.txt, NAME being its own: a request a line, and indented what the log tells of it, among other things.
//
//   02000030 (0) 01 09 -> error 122      code, room for the output if it is to be limited, input, and what comes of it:
//   0200000C 01 "b" ->                   an error or the output
//
// "restart" ends the driver and starts it again. Octets stand as two hexadecimal digits, u239 for a 32-bit number,
// "text" and L"text" for a string and a wide one.

#include <fstream>
#include <regex>
#include <sstream>

#include "tests/driver/phone.h"

namespace {

class control_test : public driver_test {
  protected:
    void play() {
        lines_t told;
        for (const std::string& line : expectation("requests")) {
            if (line.starts_with("    ")) {
                told.push_back(line.substr(4));
            } else if (line == "restart") {
                phone.stop();
                phone.start();
            } else if (!line.empty()) {
                exchange(line);
            }
        }
        expect_in_order(phone.log(), told);
    }
    void exchange(const std::string& line) {
        const std::regex form(R"(([0-9A-F]{8})(?: \((\d+)\))?(.*) ->(?: error (\d+))?(.*))");
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
        const DWORD capacity = parts[2].matched ? std::stoul(parts[2]) : 4096;
        const reply_t reply = parts[4].matched ? failed(std::stoul(parts[4])) : done(octets(parts[5]));
        EXPECT_EQ(phone.request(std::stoul(parts[1], nullptr, 16), octets(parts[3]), capacity), reply) << line;
    }
    static std::string octets(const std::string& written) {
        std::string octets;
        std::istringstream words(written);
        for (std::string word; words >> word;) {
            if (word[0] == 'u') {
                octets += u32(std::stoll(word.substr(1)));
            } else if (word[0] == 'L') {
                octets += text16(widen(word.substr(2, word.size() - 3)));
            } else if (word[0] == '"') {
                octets += text(word.substr(1, word.size() - 2));
            } else {
                octets += u8(std::stoul(word, nullptr, 16));
            }
        }
        return octets;
    }
};
using settings_test = control_test;

TEST_F(control_test, entry_points_log_themselves_and_always_succeed) {
    phone.preset_logging();
    EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), failed(4319)) << "before Init";
    EXPECT_EQ(ZPD_Deinit(1), TRUE) << "never created";
    phone.start();
    EXPECT_EQ(ZPD_Open(1, 0, 0), 1u);
    EXPECT_EQ(ZPD_Open(1, 0xC0000000, 3), 1u) << "a second client";
    EXPECT_EQ(ZPD_Close(1), TRUE);
    for (const DWORD reason : {1u, 0u, 2u, 3u, 4u}) {
        EXPECT_EQ(DllMain(nullptr, reason, nullptr), TRUE);
    }
    EXPECT_TRUE(ZPD_IOControl(1, ZPD_IOCTL_FOO, nullptr, 0, nullptr, 0, nullptr)) << "no buffers at all";
    phone.stop();
    EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), failed(4319)) << "after Deinit";
    expect_log();
}

TEST_F(control_test, requests_that_touch_nothing) {
    phone.preset_logging();
    phone.start();
    play();
    EXPECT_EQ(phone.logged("ERROR registry field 'foo_two' not found in the cache"), 8u) << "four reads and sets";
    EXPECT_EQ(phone.registry("foo_two"), "(none)");
}

TEST_F(control_test, without_impersonation_no_handler_runs) {
    phone.preset_logging();
    phone.start();
    platform::testing::fail_calls("CeImpersonateCurrentProcess", 5);
    play();
    EXPECT_FALSE(CeRevertToSelf()) << "reverted once a request";
}

TEST_F(control_test, strings_and_the_contacts_variable) {
    phone.preset_logging();
    phone.start();
    EXPECT_EQ(phone.request(ZPD_IOCTL_PIM_CONTACTS_VAR, text16(TEXT("ab"))), failed(5)) << "no such key";
    phone.preset("ab", REG_BINARY, "0123456789", R"(\Software\Microsoft\Pim\Contacts\Settings)");
    play();
    EXPECT_EQ(phone.logged("ERROR trailing bytes: 2"), 1u) << "what cannot be read whole leaves nothing behind it";
}

TEST_F(control_test, message_list_fits_itself_into_the_room) {
    phone.start();
    for (int i = 0; i < 3; ++i) {
        phone.send_card(1);
        phone.start();  // finds the driver running, and leaves it so
    }
    play();
}

TEST_F(settings_test, codes_change_what_lasts) {
    phone.preset_logging();
    phone.start();
    play();
    EXPECT_EQ(phone.registry("incoming_dir_size"), u32(16777216));
}

TEST_F(settings_test, log_file_exists_while_it_is_wanted) {
    phone.start();
    EXPECT_EQ(phone.request(ZPD_IOCTL_LOG_OPTIONS, u8(0)), done({"\0\7\0", 3}));
    EXPECT_EQ(phone.log(), lines_t()) << "off by default";
    phone.request(ZPD_IOCTL_LOG_OPTIONS, "\1\1\7\5");
    phone.request(ZPD_IOCTL_FOO);
    EXPECT_EQ(phone.logged("NOTICE foo()"), 1u);
    EXPECT_EQ(phone.logged("DEBUG ZPD_IOCTL_FOO"), 0u) << "above the threshold";
    for (const auto& off : {std::string("\1\1\7\0", 4), std::string("\1\0\7\7", 4)}) {
        phone.request(ZPD_IOCTL_LOG_OPTIONS, off);
        phone.request(ZPD_IOCTL_FOO);
        EXPECT_EQ(phone.logged("NOTICE foo()"), 1u);
    }
}

TEST_F(settings_test, unacceptable_registry_values_are_replaced) {
    phone.preset("ril_capacity", 256);
    phone.preset("next_message_id", REG_SZ, u32(5));
    phone.preset("incoming_dir_size", REG_DWORD, "12");
    phone.start();
    play();
    EXPECT_EQ(phone.registry("ril_capacity"), u32(7));
    EXPECT_EQ(phone.registry("next_message_id"), u32(239));
    EXPECT_EQ(phone.registry("incoming_dir_size"), u32(0));
}

TEST_F(settings_test, activation_and_applications) {
    phone.preset("applications", REG_BINARY, ";;a;");
    phone.install("B");  // the start forgets what is not installed
    phone.preset_logging();
    phone.start();
    play();
    EXPECT_EQ(phone.registry("activated"), u32(1));
    EXPECT_EQ(phone.registry("applications"), "");
}

TEST_F(settings_test, launching) {
    phone.preset_logging();
    phone.start();
    platform::testing::fail_calls("SHLaunchApplicationForURI", 1155, 1, 1);
    play();
}

}  // namespace
