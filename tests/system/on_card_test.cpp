// The program of `zpd serve --on-card`: for each card once, when it ends well, and three times at most.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>

#include "base/sqlite_file.h"
#include "tests/network/at_host.h"
#include "tests/system/phones.h"

namespace {

using testing::HasSubstr;

/// Bob's phone with a program that writes its runs down, and does then what the test wants.
class on_card : public testing::Test {
  protected:
    on_card() {
        write_file(program_, "#!/bin/sh\necho \"$ZPD_CARD_NUMBER $ZPD_CARD_NAME: $(cat)\" >>runs\n. ./after\n");
        chmod(program_.c_str(), 0700);
        std::filesystem::create_directories(phone_.home());
        then("exit 0");
    }

    void start(const arguments_t& more) {
        phone_.start(joined({"--activate"}, more));
        ASSERT_TRUE(phone_.ready()) << phone_.serve().errors();
    }
    void start() { start({"--on-card", program_}); }
    void end(int signal) {
        phone_.serve().signal(signal);
        phone_.serve().wait();
    }
    void then(const std::string& what) { write_file(phone_.home() + "/after", what + "\n"); }
    void receive(const std::string& card) {
        for (const std::string& tpdu : submissions(card, ++cards_, 100)) {
            sender_.submit(tpdu);
        }
    }
    std::string runs() const {
        const std::string file = phone_.home() + "/runs";
        return std::filesystem::exists(file) ? read_file(file) : "";
    }
    bool has_run(const std::string& all) {
        return eventually([&] { return runs() == all; });
    }
    int64_t unfinished() const {
        sqlite3* opened = nullptr;
        sqlite3_open((phone_.home() + "/on-card.sqlite").c_str(), &opened);
        const base::sqlite::connection_t file(opened);
        return base::sqlite::number(opened, "SELECT count(*) FROM unfinished").value_or(-1);
    }
    bool told(const std::string& words) {
        return eventually([&] { return phone_.serve().output().find(words) != std::string::npos; });
    }

    const folder_t folder_;
    const network_t network_{folder_};
    network::host_t sender_{network_.modem(alice)};
    phone_t phone_{folder_, "bob", network_.modem(bob)};
    const std::string program_ = folder_ / "program";
    unsigned cards_ = 0;
};

TEST_F(on_card, is_run_once_for_each_card_that_comes) {
    start({});
    receive("before");
    ASSERT_TRUE(eventually([&] { return phone_.stored().size() == 1; }));
    end(SIGTERM);
    start();
    receive("BEGIN:VCARD\nFN:Ann\nEND:VCARD");
    receive("no card");
    const std::string both = "2 Ann: BEGIN:VCARD\nFN:Ann\nEND:VCARD\n3 : no card\n";
    EXPECT_TRUE(has_run(both)) << runs();
    EXPECT_TRUE(eventually([&] { return unfinished() == 0; })) << "until then a kill has it run again";
    end(SIGKILL);
    start({});
    receive("meanwhile");
    ASSERT_TRUE(eventually([&] { return phone_.stored().size() == 4; }));
    end(SIGTERM);
    start();
    EXPECT_TRUE(has_run(both + "4 : meanwhile\n")) << runs();

    EXPECT_THAT(
        zpd({"serve", "--modem", "/nowhere", "--home", folder_ / "other", "--on-card", folder_ / "none"}).errors,
        HasSubstr("/none for cards: No such file"));
}

TEST_F(on_card, is_run_three_times_when_it_does_not_end_well) {
    start();
    then("exit 3");
    receive("one");
    EXPECT_TRUE(told("card 1 from " + alice + ": it ended with status 3; it is run again at the next start"));
    then("sleep 100");
    end(SIGTERM);
    start();
    EXPECT_TRUE(has_run("1 : one\n1 : one\n"));
    const auto before = std::chrono::steady_clock::now();
    end(SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20)) << "the program goes with it";
    start();
    EXPECT_TRUE(has_run("1 : one\n1 : one\n1 : one\n"));
    end(SIGKILL);  // in the third run
    then("exit 0");
    start();
    EXPECT_TRUE(told("card 1 did not end 3 times; it is not run again"));
    receive("two");
    EXPECT_TRUE(has_run("1 : one\n1 : one\n1 : one\n2 : two\n")) << runs();
    EXPECT_THAT(phone_.zpd({"events"}).output, HasSubstr("it ended with status 3"));
}

}  // namespace
