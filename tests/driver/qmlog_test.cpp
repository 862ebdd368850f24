// What a line of the log looks like, where it goes, and what happens while the file cannot be opened.

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
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

TEST(log_line, arguments_are_not_asked_for_what_nobody_writes) {
    int asked = 0;
    const auto ask = [&asked] { return ++asked; };
    qmlog::logging_enabled = true;
    QM_ERROR("%d", ask());  // the debugger's sink writes nothing
    {
        captured_log_t sink;
        sink.set_threshold(4);
        QM_NOTICE("%d", ask());
        QM_WARNING("%d", ask());
        EXPECT_THAT(sink.lines, ElementsAre("WARNING: 1"));
    }
    QM_ERROR("%d", ask());
    EXPECT_EQ(asked, 1);
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

TEST(log_object, tells_its_new_name_in_turn) {
    struct told_t final : qmlog::named_t {
        explicit told_t(std::vector<std::string>& all) : names(all) {}
        void process_name_changed(const std::string& name) override {
            names.push_back(name + " " + std::to_string(names.size()));
        }
        std::vector<std::string>& names;
    };
    std::vector<std::string> first, second;
    told_t one(first), another(second);
    qmlog::object_t object;
    object.register_named(one);
    object.register_named(another);
    object.register_named(one);
    object.set_process_name("ZPD");
    EXPECT_THAT(first, ElementsAre("ZPD 0", "ZPD 1"));
    EXPECT_THAT(second, ElementsAre("ZPD 0"));
    EXPECT_EQ(object.process_name(), "ZPD");
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

TEST_F(log_file_test, file_is_opened_when_it_may_be) {
    void (*const forbid[])(qmlog::log_file&) = {
        [](qmlog::log_file& sink) { sink.allow_opening(false); },
        [](qmlog::log_file& sink) { sink.set_flags(sink.flags() | qmlog::flag_file_wait_for_permission); },
    };
    const std::filesystem::path file = phone.home() / "waiting.log";
    for (const auto hold_back : forbid) {
        qmlog::log_file sink(qmlog::process_log(), R"(\waiting.log)");
        sink.set_flags(qmlog::flag_message | qmlog::flag_file_keep_backlog | qmlog::flag_file_close_each_line);
        hold_back(sink);
        log(5, 0, "", "", "one");
        EXPECT_FALSE(exists(file));
        sink.allow_opening(true);
        log(5, 0, "", "", "two");
        EXPECT_EQ(read_file(file), "one\ntwo\n");
        remove(file);
    }
}

TEST_F(log_file_test, stream_of_the_caller_stays_open) {
    FILE* const stream = fopen((phone.home() / "own.log").string().c_str(), "wb");
    {
        qmlog::log_file sink(qmlog::process_log(), stream);
        sink.set_flags(qmlog::flag_message | qmlog::flag_file_close_each_line | qmlog::flag_file_wait_for_permission);
        log(5, 0, "", "", "one");
        log(5, 0, "", "", "two");
    }
    fputs("three\n", stream);
    fclose(stream);
    EXPECT_EQ(read_file(phone.home() / "own.log"), "one\ntwo\nthree\n");
}

/// What two threads leave in a file that log a line each at once, as often as told.
std::vector<std::string> logged_by_two(const std::filesystem::path& file, const std::string& one,
                                       const std::string& another, int times) {
    const auto write = [times](const std::string& line) {
        for (int i = 0; i < times; ++i) {
            log(5, 0, "", "", line.c_str());
        }
    };
    all_at_once({[&] { write(one); }, [&] { write(another); }});
    std::vector<std::string> lines;
    std::ifstream left(file);
    for (std::string line; std::getline(left, line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST_F(log_file_test, backlog_comes_before_what_is_newer) {
    for (int round = 0; round < 500; ++round) {
        const std::string name = "waiting" + std::to_string(round);
        qmlog::log_file sink(qmlog::process_log(), "\\" + name);
        sink.set_flags(qmlog::flag_message | qmlog::flag_file_keep_backlog);
        sink.allow_opening(false);
        log(5, 0, "", "", "one");
        log(5, 0, "", "", "two");
        sink.allow_opening(true);
        ASSERT_THAT(logged_by_two(phone.home() / name, "new", "new", 1), ElementsAre("one", "two", "new", "new"))
            << round;
    }
}

TEST_F(log_file_test, long_lines_are_whole) {
    qmlog::log_file sink(qmlog::process_log(), R"(\long.log)");
    sink.set_flags(qmlog::flag_message);
    log(5, 0, "", "", "short");
    const std::string a(70'000, 'a');
    const std::string b(66'001, 'b');
    const auto lines = logged_by_two(phone.home() / "long.log", a, b, 600);
    EXPECT_EQ(std::ranges::count(lines, a), 600);
    EXPECT_EQ(std::ranges::count(lines, b), 600);
    EXPECT_EQ(lines.size(), 1201u);
}

}  // namespace
