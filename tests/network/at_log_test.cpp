// The record of what a modem and its hosts say: from the modem's side what zpd serve --trace writes from the host's.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "network/network.h"
#include "radio/trace.h"
#include "tests/network/host.h"

namespace network {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class at_log_test : public network_test {
  protected:
    void log() {
        EXPECT_EQ(network_->log_dialogues(logs_, [this](const std::string& what) { told_ += what + "\n"; }), "");
    }
    static std::string lines_of(const std::filesystem::path& file) {
        std::ifstream lines(file);
        std::string text;
        for (std::string line; std::getline(lines, line);) {
            text += line.starts_with("#") ? "" : line + "\n";
        }
        return text;
    }

    const std::filesystem::path logs_ = directory_ / "new" / "logs";
    const std::filesystem::path file_ = logs_ / (alice + ".log");
    std::string told_;
};

TEST_F(at_log_test, holds_what_a_trace_of_the_host_holds) {
    log();
    set_fault(alice, "pin=4711");
    set_fault(alice, "single-octets");
    {
        radio::trace_t trace;
        ASSERT_EQ(trace.open(directory_ / "trace"), "");
        host_t host(network_->link(alice));
        const auto say = [&](const std::string& text, const std::string& end) {
            trace.sent(text);
            host.send(text);
            trace.received(host.read_until(end));
        };
        say("AT+CPIN=\"4712\"\r", "ERROR\r\n");
        say("at+cpin=4711;+CMEE=1\r", "OK\r\n");
        say("AT+CNMI=2,1;E0\r", "OK\r\n");
        say("AT+CMGS=14\r", "\r\n> ");
        say("00" + base::to_hex(air::encode(submit_to(alice, {1})).value()) + "\x1a", "+CMTI: \"ME\",1\r\n");
        say("AT+CMGR=7\r", "ERROR: 321\r\n");
    }
    network_.reset();
    const std::string log = lines_of(file_);
    EXPECT_EQ(log, lines_of(directory_ / "trace"));
    EXPECT_THAT(log, AllOf(HasSubstr("> at+cpin=****;+CMEE=****\n"), HasSubstr("! \\r\\n+CMTI: "),
                           Not(HasSubstr("4711")), Not(HasSubstr("4712"))));
    EXPECT_EQ(lines_of(logs_ / (bob + ".log")), "");
}

TEST_F(at_log_test, bears_hosts_that_never_end_a_line_and_holds_nothing_of_a_silent_modem) {
    log();
    set_fault(alice, "silent");
    host_t(network_->link(alice)).send("AT\r" + std::string(100'000, 'x'));
    set_fault(alice, "silent=off");
    host(alice)->expect_nothing();
    network_.reset();
    const std::string log = lines_of(file_);
    EXPECT_TRUE(log.starts_with("> AT\n> xxxx")) << log.substr(0, 30);
    EXPECT_GT(log.size(), 100'000U);
}

TEST_F(at_log_test, a_disk_that_is_full_is_told_once_and_a_place_that_cannot_be_at_once) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    const rlimit full{2000, usual.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    log();
    const auto at = host(alice);
    setrlimit(RLIMIT_FSIZE, &full);
    for (int i = 0; i < 200; ++i) {
        at->expect("AT\r", "\r\nOK\r\n");
    }
    setrlimit(RLIMIT_FSIZE, &usual);
    network_->faults_in_force(alice);
    EXPECT_EQ(told_, "cannot write " + file_.string() + ": File too large; the dialogue is recorded no further\n");
    EXPECT_EQ(std::filesystem::file_size(file_), 2000U);
    const auto nobody = [](const std::string&) {};
    EXPECT_THAT(network_->log_dialogues(file_ / "logs", nobody), HasSubstr("cannot make the folder"));
    std::filesystem::remove(file_);
    std::filesystem::create_directory(file_);
    EXPECT_THAT(network_->log_dialogues(logs_, nobody), AllOf(HasSubstr(alice), HasSubstr("is a folder")));
}

}  // namespace
}  // namespace network
