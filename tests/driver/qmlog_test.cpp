// What a line of the log looks like, where it goes, and what happens while the file cannot be opened.

#include <gmock/gmock.h>

#include <regex>

#include "com/qmlog/hex_dump.h"
#include "com/qmlog/log_file.h"
#include "tests/driver/captured_log.h"
#include "tests/driver/phone.h"

using testing::ElementsAre;

namespace {

// GoogleTest's own knows none worth the name on Windows.
MATCHER_P(matches, pattern, "matches " + std::string(pattern)) {
    return std::regex_match(arg, std::regex(pattern));
}

void log(int32_t level, int32_t line, const char* file, const char* function, const char* message) {
    qmlog::log(qmlog::process_log(), level, {line, file, function}, "%s", message);
}

TEST(log_line, default_form_and_fractions_of_the_second) {
    captured_log_t sink(qmlog::default_flags);
    log(5, 12, R"(C:\src\main.cpp)", "daemon_t::init", "START");
    qmlog::log(qmlog::process_log(), 7, {12, "main.cpp", "ZPD_Open"}, "");
    for (const uint32_t fractions : {0x1800u, 0x3800u}) {
        sink.set_flags(fractions | qmlog::flag_message);
        log(5, 0, "", "", "m");
    }
    const std::string brackets =
        R"(\[monotonic=n/a \(TZ=n/a,GMT\) [0-9]+-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} '[^']+'\] \[[^\]]+\])";
    EXPECT_THAT(sink.lines,
                ElementsAre(matches(brackets + " NOTICE at main.cpp:12 in daemon_t::init:"),
                            matches(brackets + " -- START"), matches(brackets + " DEBUG: at main.cpp:12 in ZPD_Open"),
                            matches(R"(\[[0-9:]{8}\.000\] m)"), matches(R"(\[[0-9:]{8}\.000000\] m)")));
}

TEST(log_line, punctuation_follows_what_is_given) {
    constexpr uint32_t flags = qmlog::flag_message | qmlog::flag_location | qmlog::flag_function | qmlog::flag_level;
    const std::tuple<uint32_t, int32_t, int32_t, const char*, const char*, const char*> cases[] = {
        {flags, 3, 7, "f", "m", "ERROR at a.cpp:7 in f: m"},
        {flags, 1, 7, "", "m", "INTERNAL ERROR at a.cpp:7: m"},
        {flags, 2, 0, "f", "m", "CRITICAL ERROR in f: m"},
        {flags, 4, 0, "", "m", "WARNING: m"},
        {flags, 6, 7, "f", "", "INFO: at a.cpp:7 in f"},
        {flags, 5, 0, "", "", "NOTICE."},
        {flags, 0, 0, "", "m", "OOPS: m"},
        {qmlog::flag_level, 3, 7, "f", "m", "ERROR."},
        {qmlog::flag_message, 3, 7, "f", "m", "m"},
    };
    for (const auto& [shown, level, line, function, message, expected] : cases) {
        captured_log_t sink(shown);
        qmlog::log(qmlog::process_log(), level, {line, "a.cpp", function}, message[0] ? "%s" : "", message);
        EXPECT_THAT(sink.lines, ElementsAre(expected));
    }
}

TEST(log_line, is_never_cut) {
    captured_log_t sink(qmlog::flag_message);
    for (const size_t length : {255u, 256u, 257u, 5000u}) {
        log(5, 0, "", "", std::string(length, 'x').c_str());
        EXPECT_EQ(sink.lines.back(), std::string(length, 'x'));
    }
}

TEST(log_line, thresholds) {
    captured_log_t all;
    captured_log_t some;
    some.set_threshold(4);
    log(4, 0, "", "", "warning");
    log(5, 0, "", "", "notice");
    qmlog::process_log().set_threshold(4);
    log(5, 0, "", "", "nobody sees this");
    qmlog::process_log().set_threshold(7);
    EXPECT_THAT(all.lines, ElementsAre("WARNING: warning", "NOTICE: notice"));
    EXPECT_THAT(some.lines, ElementsAre("WARNING: warning"));
}

TEST(log_line, assertions_go_on) {
    captured_log_t sink(qmlog::flag_message | qmlog::flag_location | qmlog::flag_level);
    qmlog::assertion_failed(qmlog::process_log(), false, "a==b", {9, "a.cpp", "f"}, "a is %d", 1);
    qmlog::assertion_failed(qmlog::process_log(), true, "c", {9, "a.cpp", "f"}, "");
    EXPECT_THAT(
        sink.lines,
        ElementsAre(
            "INTERNAL ERROR at a.cpp:9: Assertion 'a==b' failed; detailed info follows:", "INTERNAL ERROR: a is 1",
            "INTERNAL ERROR: the program execution will be continued as abortion was disabled at compile time",
            "INTERNAL ERROR at a.cpp:9: Assertion 'c' failed.",
            "INTERNAL ERROR: the program will terminate due to internal error above"));
}

TEST(log_object, second_one_is_reported) {
    captured_log_t sink;
    const qmlog::object_t another;
    EXPECT_THAT(sink.lines, ElementsAre("INTERNAL ERROR: singleton initializer called again"));
}

TEST(hex_dump, rows_of_sixteen) {
    captured_log_t sink;
    qmlog::hex_dump(6, {0, "", ""}, {"\x00\t\n\rAZ\\~ \x7F\x80\xFF\x1B...!", 17});
    EXPECT_THAT(
        sink.lines,
        ElementsAre(
            R"(INFO: 00: 00 09 0A 0D . 41 5A 5C 7E | 20 7F 80 FF . 1B 2E 2E 2E || \0\t\n\rAZ\\~ \x{7f}\x{80}\x{ff}\x{1b}...)",
            "INFO: 01: 21                                                    || !"));
}

using log_file_test = driver_test;

TEST_F(log_file_test, what_comes_before_the_folder_waits_or_is_lost) {
    captured_log_t enable;
    qmlog::log_file waiting(qmlog::process_log(), R"(\later\waiting.log)");
    qmlog::log_file losing(qmlog::process_log(), R"(\later\losing.log)");
    waiting.set_flags(qmlog::flag_message | qmlog::flag_file_keep_backlog);
    losing.set_flags(qmlog::flag_message | qmlog::flag_file_close_each_line);
    log(5, 0, "", "", "one");
    log(5, 0, "", "", "two");
    std::filesystem::create_directories(phone.home() / "later");
    log(5, 0, "", "", "three");
    std::filesystem::remove(phone.home() / "later/losing.log");
    log(5, 0, "", "", "four");
    EXPECT_EQ(read_file(phone.home() / "later/waiting.log"), "one\ntwo\nthree\nfour\n");
    EXPECT_EQ(read_file(phone.home() / "later/losing.log"), "four\n") << "the file is opened for each line";
}

}  // namespace
