// Where a modem is looked for, who is asked, and what a user is told who may not ask.
#include "radio/modem_search.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "radio/tty_access.h"
#include "tests/driver/home.h"
#include "tests/radio/scripted_modem.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(modem_search, lasting_names_come_first) {
    const home_t folder;
    const std::filesystem::path devices = std::filesystem::path(folder.path()) / "dev";
    std::filesystem::create_directories(devices / "serial" / "by-id");
    for (const char* name : {"ttyUSB1", "ttyACM0", "ttyS0", "null"}) {
        std::ofstream(devices / name) << "";
    }
    EXPECT_THAT(radio::modem_ttys(devices), ElementsAre(devices / "ttyACM0", devices / "ttyUSB1"));
    std::ofstream(devices / "serial" / "by-id" / "usb-1") << "";
    EXPECT_THAT(radio::modem_ttys(devices), ElementsAre(devices / "serial/by-id/usb-1"));
    EXPECT_THAT(radio::modem_ttys(devices / "none"), IsEmpty());
}

/// A program that opens a tty and marks it in no way.
class other_program_t {
  public:
    explicit other_program_t(const std::string& tty) {
        const int descriptor = open(tty.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        id_ = fork();
        if (id_ == 0) {
            pause();
            _exit(0);
        }
        close(descriptor);
    }
    ~other_program_t() {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    other_program_t(const other_program_t&) = delete;
    other_program_t& operator=(const other_program_t&) = delete;

  private:
    pid_t id_;
};

TEST(modem_search, a_modem_answers_unless_another_program_has_it) {
    scripted_modem_t modem;
    EXPECT_EQ(radio::try_modem(modem.tty()), "");
    const size_t said = modem.log().size();
    {
        const other_program_t other(modem.tty());
        EXPECT_EQ(radio::try_modem(modem.tty()), "in use by another program");
        EXPECT_EQ(modem.log().size(), said);
    }
    modem.mute(true);
    EXPECT_EQ(radio::try_modem(modem.tty()), "no modem answers");
    EXPECT_THAT(radio::try_modem("/dev/no-such-tty"), HasSubstr("No such file"));
}

TEST(tty_access, nobody_is_sent_into_the_group_root) {
    constexpr gid_t group = 20;  // any
    EXPECT_THAT(radio::access_advice(0660, 0, group), HasSubstr("member of its group"));
    for (const auto& [mode, owner] : {std::pair<mode_t, gid_t>{0660, 0}, {0600, group}, {0640, group}, {0620, group}}) {
        const std::string advice = radio::access_advice(mode, 0, owner);
        EXPECT_THAT(advice, HasSubstr("only its owner, root, may use it: a udev rule"));
        EXPECT_THAT(advice, Not(HasSubstr("member of its group")));
    }
}

}  // namespace
