// The entry points, the dispatch of control requests, their buffers, and the settings. Each file of requests/ is a
// test: a request a line, and indented what the log tells of it, among other things.
//
//   02000030 (0) 01 09 -> error 122      code, room for the output if it is to be limited, input, and what comes of it:
//   0200000C 01 "b" ->                   an error or the output
//
// Octets stand as two hexadecimal digits, u239 for a 32-bit number, "text" and L"text" for a string and a wide one,
// 'text' for the text alone. The driver, which logs everything, is started by the first request. Between the requests:
//
// * preset NAME TYPE OCTETS...: a value of the settings, of the registry's type; \KEY\NAME stands for one elsewhere
// * registry NAME OCTETS...: that is what it holds; without octets it is not there
// * install NAME: an application
// * fail CALL ERROR COUNT SKIP: calls of the platform fail, as platform/linux/testing.h has it
// * start: a driver that runs is started once more
// * restart: it is ended and started again
// * logged COUNT LINE: how often the log has the line, so far

#include <fstream>
#include <regex>
#include <sstream>

#include "tests/driver/phone.h"
#include "tests/transcript.h"

namespace {

using control_test = driver_test;

class requests : public driver_test, public testing::WithParamInterface<std::filesystem::path> {
  protected:
    void play(const std::string& line) {
        std::istringstream words(line);
        std::string word;
        std::string name;
        words >> word;
        if (word == "preset") {
            DWORD type = 0;
            words >> name >> type;
            preset(name, type, octets(words));
        } else if (word == "registry") {
            words >> name;
            const std::string held = octets(words);
            EXPECT_EQ(phone.registry(name), held.empty() ? "(none)" : held) << line;
        } else if (word == "install") {
            words >> name;
            phone.install(name);
        } else if (word == "fail") {
            int error = 0;
            int count = 0;
            int skip = 0;
            words >> name >> error >> count >> skip;
            platform::testing::fail_calls(name, static_cast<DWORD>(error), count, skip);
        } else if (word == "start") {
            phone.start();
        } else if (word == "restart") {
            phone.stop();
            phone.start();
        } else if (word == "logged") {
            size_t count = 0;
            words >> count >> std::ws;
            std::getline(words, name);
            EXPECT_EQ(phone.logged(name), count) << line;
        } else {
            exchange(line);
        }
    }

  private:
    void preset(const std::string& name, DWORD type, const std::string& octets) {
        const size_t key = name.rfind('\\');
        if (key == std::string::npos) {
            phone.preset(name, type, octets);
        } else {
            phone.preset(name.substr(key + 1), type, octets, name.substr(0, key));
        }
    }
    void exchange(const std::string& line) {
        static const std::regex form(R"(([0-9A-F]{8})(?: \((\d+)\))?(.*) ->(?: error (\d+))?(.*))");
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
        if (!phone.is_running()) {
            phone.start();
        }
        std::istringstream input(parts[3]);
        std::istringstream output(parts[5]);
        const DWORD capacity = parts[2].matched ? std::stoul(parts[2]) : 4096;
        const reply_t reply = parts[4].matched ? failed(std::stoul(parts[4])) : done(octets(output));
        EXPECT_EQ(phone.request(std::stoul(parts[1], nullptr, 16), octets(input), capacity), reply) << line;
    }
    static std::string octets(std::istream& words) {
        std::string octets;
        for (std::string word; words >> word;) {
            if (word[0] == 'u') {
                octets += u32(std::stoll(word.substr(1)));
            } else if (word[0] == 'L') {
                octets += text16(widen(word.substr(2, word.size() - 3)));
            } else if (word[0] == '"') {
                octets += text(word.substr(1, word.size() - 2));
            } else if (word[0] == '\'') {
                octets += word.substr(1, word.size() - 2);
            } else {
                octets += u8(std::stoul(word, nullptr, 16));
            }
        }
        return octets;
    }
};

TEST_P(requests, are_answered) {
    phone.preset_logging();
    lines_t told;
    for (const std::string& line : lines_of(GetParam())) {
        if (line.starts_with("    ")) {
            told.push_back(line.substr(4));
        } else if (!line.empty()) {
            play(line);
        }
    }
    expect_in_order(phone.log(), told);
    EXPECT_FALSE(CeRevertToSelf()) << "reverted once a request";
}

INSTANTIATE_TEST_SUITE_P(files, requests, transcripts("driver/requests"), name_of_transcript);

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

TEST_F(control_test, log_file_exists_while_it_is_wanted) {
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

}  // namespace
