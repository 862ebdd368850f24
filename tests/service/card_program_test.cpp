// A program that is run for a card: what it is given, how its end is told, and that it has one.
#include "service/card_program.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "base/descriptor.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class card_program : public testing::Test {
  protected:
    card_program() {
        std::string name = testing::TempDir() + "card-program-XXXXXX";
        home_ = mkdtemp(name.data());
    }
    ~card_program() override { std::filesystem::remove_all(home_); }

    /// Runs a shell script on the card.
    std::string run(const std::string& script, card_program_t::limits_t limits = {}) {
        const std::filesystem::path program = home_ / "program";
        std::ofstream(program) << "#!/bin/sh\n" << script << '\n';
        chmod(program.c_str(), 0700);
        return card_program_t(program, home_, limits).run(card_, end_.get());
    }
    std::string written(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(home_ / name).rdbuf();
        return text.str();
    }

    std::filesystem::path home_;
    received_card_t card_{"/x/4f0a", 3, "+12025550100", 1795345678, "Zo\xC3\xAB\n\x1b[31m\xFF", "card\n"};
    const base::descriptor_t end_{eventfd(0, EFD_CLOEXEC)};
};

TEST_F(card_program, has_the_card_and_nothing_of_the_service) {
    setenv("ZPD_CARD_NAME", "of a card before", 1);  // NOLINT(concurrency-mt-unsafe): no other thread
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const int inherited = open("/dev/null", O_RDONLY);  // NOLINT: as a library might open it
    EXPECT_EQ(
        run("env | grep ^ZPD_ | sort >environment; cat >input; grep -E 'Sig(Blk|Ign)' /proc/self/status >signals\n"
            "ls /proc/self/fd >descriptors"),
        "");
    close(inherited);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    unsetenv("ZPD_CARD_NAME");  // NOLINT(concurrency-mt-unsafe)
    EXPECT_EQ(written("environment"),
              "ZPD_CARD_FILE=/x/4f0a\nZPD_CARD_NAME=Zo\xC3\xAB  [31m\xEF\xBF\xBD\n"
              "ZPD_CARD_NUMBER=3\nZPD_CARD_SENDER=+12025550100\nZPD_CARD_TIME=1795345678\n"
              "ZPD_HOME=" +
                  home_.native() + "\n");
    EXPECT_EQ(written("input"), card_.octets);
    EXPECT_THAT(written("signals"), testing::MatchesRegex("SigBlk:\t0*\nSigIgn:\t[018]*0000000\n"))
        << "but the C library's own";
    EXPECT_EQ(written("descriptors"), "0\n1\n2\n3\n") << "3 is the folder, open to be listed";
}

TEST_F(card_program, that_does_not_end_well_is_told_how) {
    card_.octets.assign(1 << 20, 'x');
    EXPECT_EQ(run("exit 0"), "") << "with its input unread";
    EXPECT_EQ(run("exit 3"), "it ended with status 3");
    EXPECT_EQ(run("kill -9 $$"), "it was ended by signal 9 (Killed)");
    EXPECT_EQ(card_program_t(home_ / "none", home_, {}).run(card_, end_.get()),
              "it could not be started: No such file or directory");
    EXPECT_EQ(card_program_t::problem(home_ / "program"), "");
    chmod((home_ / "program").c_str(), 0600);
    EXPECT_THAT(card_program_t::problem(home_ / "program"), HasSubstr("/program for cards: chmod +x "));
    EXPECT_THAT(card_program_t::problem(home_), HasSubstr("it is no file"));
    EXPECT_THAT(card_program_t::problem(home_ / "none"), HasSubstr("No such file"));
}

TEST_F(card_program, ends_with_all_that_it_started_at_its_limit_or_with_the_service) {
    // Nobody may be there to reap it.
    const auto is_gone = [&](const std::string& name) {
        const std::string id = written(name);
        const std::filesystem::path process = "/proc/" + id.substr(0, id.find('\n'));
        for (int tries = 0; tries < 100; ++tries) {
            std::ostringstream status;
            status << std::ifstream(process / "status").rdbuf();
            if (status.str().empty() || status.str().find("State:\tZ") != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(50ms);
        }
        return false;
    };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run("sleep 100 & echo $! >child; wait", {.run = 1s, .leave = 60s}), "it was ended after 1 s");
    EXPECT_TRUE(is_gone("child"));
    EXPECT_EQ(run("trap '' TERM; echo $$ >self; sleep 100", {.run = 1s, .leave = 100ms}), "it was ended after 1 s");
    EXPECT_TRUE(is_gone("self"));
    eventfd_write(end_.get(), 1);
    EXPECT_EQ(run("sleep 100"), "the service ended meanwhile");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

// Of examples/on-card, with a notify-send of our own.
TEST_F(card_program, examples_take_what_a_stranger_wrote_for_a_text) {
    const std::filesystem::path examples = ZPD_SOURCE "/examples/on-card";
    const std::string path = getenv("PATH");  // NOLINT(concurrency-mt-unsafe): no other thread
    run("printf '<%s>' \"$@\" >told");
    std::filesystem::rename(home_ / "program", home_ / "notify-send");
    setenv("PATH", (home_.native() + ":" + path).c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    card_.name = "--help <b>&amp;";
    EXPECT_EQ(card_program_t(examples / "notify", home_, {}).run(card_, end_.get()), "");
    EXPECT_THAT(written("told"), HasSubstr("<--><Contact card from +12025550100><--help &lt;b&gt;&amp;amp;>"));

    setenv("PATH", path.c_str(), 1);                          // NOLINT(concurrency-mt-unsafe)
    setenv("ADDRESS_BOOK", (home_ / "contacts").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    card_.octets = "BEGIN:VCARD\r\nFN:../a\r\nEND:VCARD\r\nbegin:vcard\nFN:b\nend:vcard";
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(card_program_t(examples / "address-book", home_, {}).run(card_, end_.get()), "");
    }
    EXPECT_EQ(written("contacts/card-3-1.vcf"), "BEGIN:VCARD\r\nFN:../a\r\nEND:VCARD\r\n");
    EXPECT_EQ(written("contacts/card-3-2.vcf"), "begin:vcard\nFN:b\nend:vcard\n");
    const std::filesystem::directory_iterator files(home_ / "contacts");
    EXPECT_EQ(std::distance(begin(files), end(files)), 2);
    card_.octets = "hello";
    EXPECT_EQ(card_program_t(examples / "address-book", home_, {}).run(card_, end_.get()), "it ended with status 1");
    unsetenv("ADDRESS_BOOK");  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace
