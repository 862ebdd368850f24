// What a trace holds, in pieces as a tty gives them, and the file that it is in.
#include "radio/trace.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "tests/driver/home.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string content_of(const std::filesystem::path& file) {
    return (std::stringstream() << std::ifstream(file).rdbuf()).str();
}

class record : public testing::Test {
  protected:
    /// The lines of a trace of what `speech` says, without comments.
    std::string traced(const std::function<void(radio::trace_t&)>& speech) const {
        {
            radio::trace_t trace;
            EXPECT_EQ(trace.open(file), "");
            speech(trace);
        }
        std::istringstream lines(content_of(file));
        std::string text;
        for (std::string line; std::getline(lines, line);) {
            text += line[0] == '#' ? "" : line + '\n';
        }
        return text;
    }

    const home_t home;
    const std::filesystem::path file = home.path() / "trace";
};

TEST_F(record, has_the_lines_of_both_sides_in_the_form_of_a_transcript) {
    const std::string lines = traced([](radio::trace_t& trace) {
        trace.received("\xFF\r\nRING\r\n");
        trace.sent(
            "\x1B"
            "AT+CM");
        trace.sent("GS=3\r");
        trace.received("AT+CMGS=3\r\r\n> ");
        trace.sent("000102\x1A");
        trace.received("\r\n+CMGS: 7\r\n\r\nO");
        trace.received("K\r\n\r\n+CMTI: \"SM\",1\r\n");
        trace.sent("AT\r");
        trace.received("0\r");
        trace.received("a\\b");
    });
    EXPECT_EQ(lines, R"(< \xFF\r\n
< RING\r\n
> AT+CMGS=3
< AT+CMGS=3\r\r\n
< >\x20
> ^Z 000102
< \r\n+CMGS: 7\r\n
< \r\nOK\r\n
! \r\n+CMTI: "SM",1\r\n
> AT
< 0\r
< a\x5Cb
)");
    EXPECT_THAT(content_of(file), AllOf(StartsWith("# Begun 20"), HasSubstr("\n# 0.0")));
}

TEST_F(record, holds_no_pin_whatever_pieces_it_comes_in) {
    const std::string echo = "+CPIN=\"4711\"\r\r\n+CME ERROR: 16\r\n";
    for (const char* command : {"AT+CPIN=\"4711\"\r", "AT^CPIN=4711,\"4711\"\r", "AT*ENPIN=\"4711\"\r"}) {
        for (size_t cut = 0; cut < echo.size(); ++cut) {
            const std::string lines = traced([&](radio::trace_t& trace) {
                trace.sent(command);
                trace.received(echo.substr(cut / 2, cut - cut / 2));
                trace.received(echo.substr(cut));
                trace.sent("AT+CSQ\r");
                trace.received("\r\n4711\r\n");
            });
            const size_t next = lines.find("> AT+CSQ");
            EXPECT_THAT(lines.substr(0, next), AllOf(Not(HasSubstr("47")), Not(HasSubstr("11")), HasSubstr("****")));
            EXPECT_THAT(lines.substr(next), HasSubstr("4711")) << "which is not the PIN";
        }
    }
}

TEST_F(record, is_its_owners_alone_and_takes_nobodys_place) {
    std::ofstream(file) << "of yesterday";
    chmod(file.c_str(), 0644);
    traced([](radio::trace_t& trace) { trace.sent("AT\r"); });
    EXPECT_EQ(content_of(file.native() + ".1"), "of yesterday");
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    const std::filesystem::path precious = home.path() / "precious", link = home.path() / "link";
    std::ofstream(precious) << "octets";
    std::filesystem::create_symlink(precious, link);
    EXPECT_THAT(radio::trace_t().open(link), HasSubstr("is a link"));
    EXPECT_THAT(radio::trace_t().open(home.path()), HasSubstr("is a folder"));
    EXPECT_THAT(radio::trace_t().open(home.path() / "no" / "trace"), HasSubstr("No such file"));
    EXPECT_EQ(content_of(precious), "octets");
}

TEST_F(record, takes_so_much_and_keeps_one_older_file) {
    {
        radio::trace_t trace(10'000);
        ASSERT_EQ(trace.open(file), "");
        for (int i = 0; i < 3000; ++i) {
            trace.sent("AT+CMGD=" + std::to_string(i) + "\r");
            std::this_thread::sleep_for(std::chrono::microseconds(i % 100 == 0 ? 2000 : 0));
        }
    }
    const std::string older = content_of(file.native() + ".1"), newer = content_of(file);
    EXPECT_THAT(newer, AllOf(StartsWith("# Begun"), EndsWith("> AT+CMGD=2999\n")));
    EXPECT_LT(older.size() + newer.size(), 40'000U);
    EXPECT_GT(older.size(), 9'000U);
}

TEST_F(record, a_full_disk_is_warned_of_once) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    const rlimit full{2000, usual.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    testing::internal::CaptureStderr();
    setrlimit(RLIMIT_FSIZE, &full);
    traced([](radio::trace_t& trace) {
        for (int i = 0; i < 1000; ++i) {
            trace.sent("AT+CMGD=" + std::to_string(i) + "\r");
        }
    });
    setrlimit(RLIMIT_FSIZE, &usual);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, HasSubstr("File too large; the dialogue is recorded no further"));
    EXPECT_EQ(std::ranges::count(told, '\n'), 1);
    EXPECT_EQ(std::filesystem::file_size(file), 2000U);
}

}  // namespace
