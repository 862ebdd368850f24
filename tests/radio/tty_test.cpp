// The tty: whom it is taken from, and how it is set, whatever another program has left.
#include "radio/tty.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <fstream>
#include <future>
#include <thread>

namespace {

using radio::line_settings_t;
using testing::HasSubstr;

class tty : public testing::Test {
  protected:
    tty() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
        std::array<char, 64> name{};
        EXPECT_TRUE(grantpt(master_) == 0 && unlockpt(master_) == 0 && ptsname_r(master_, name.data(), 64) == 0);
        path = name.data();
        other = ::open(path.c_str(), O_RDWR | O_NOCTTY);
        std::string file = "/run/lock/LCK.." + path.substr(std::strlen("/dev/"));
        std::ranges::replace(file.begin() + static_cast<std::ptrdiff_t>(std::strlen("/run/lock/")), file.end(), '/',
                             '_');
        lock_file = file;
    }
    ~tty() override {
        std::filesystem::remove(lock_file);
        close(other);
        close(master_);
    }
    std::string opened(const line_settings_t& line = {}) {
        radio::tty_t taken;
        return taken.open(path, line);
    }
    void write_lock_file(const std::string& content) const { std::ofstream(lock_file) << content; }

    std::string path;
    std::filesystem::path lock_file;
    int other = -1;  // another program's hold on the tty

  private:
    int master_;
};

std::string octets_of(pid_t pid) {
    std::string octets(sizeof pid, '\0');
    std::memcpy(octets.data(), &pid, sizeof pid);
    return octets;
}

TEST_F(tty, one_that_another_program_has_locked_is_left_alone) {
    flock(other, LOCK_EX);
    EXPECT_THAT(opened(), HasSubstr("in use by another program"));
    flock(other, LOCK_UN);
    ioctl(other, TIOCEXCL);
    EXPECT_THAT(opened(), HasSubstr("in use by another program"));
    ioctl(other, TIOCNXCL);
    EXPECT_EQ(opened(), "");
    EXPECT_THAT(radio::tty_t().open("/dev/null"), HasSubstr("is no tty"));
}

TEST_F(tty, a_lock_file_counts_as_long_as_its_process_lives) {
    const pid_t holder = fork();
    if (holder == 0) {
        pause();
        _exit(0);
    }
    const std::string number = std::to_string(holder);
    const std::array<std::string, 3> forms = {"      " + number + "\n", number + " minicom root\n", octets_of(holder)};
    for (const std::string& form : forms) {
        write_lock_file(form);
        EXPECT_THAT(opened(), HasSubstr("process " + number + " (")) << form;
    }
    write_lock_file(number + " zpd\n");
    EXPECT_EQ(opened(), "") << "one of ours would hold the tty: its number is another's by now";
    kill(holder, SIGKILL);
    for (const int still_a_zombie : {WNOWAIT, 0}) {
        siginfo_t ignored{};
        waitid(P_PID, static_cast<id_t>(holder), &ignored, WEXITED | still_a_zombie);
        for (const std::string& form : forms) {
            write_lock_file(form);
            EXPECT_EQ(opened(), "") << "the lock of a dead process is taken over: " << form;
            EXPECT_FALSE(std::filesystem::exists(lock_file));
        }
    }
}

TEST_F(tty, its_lock_file_can_be_read_by_everybody) {
    const mode_t before = umask(0077);
    radio::tty_t taken;
    EXPECT_EQ(taken.open(path), "");
    EXPECT_EQ(std::filesystem::status(lock_file).permissions(), std::filesystem::perms(0644));
    umask(before);
}

TEST_F(tty, a_lock_file_that_is_being_written_is_waited_for_and_not_removed) {
    for (const char* unfinished : {"", "    ", "  12", "1234", "whose?\n"}) {
        write_lock_file(unfinished);
        EXPECT_THAT(opened(), HasSubstr("remove that file")) << unfinished;
        EXPECT_TRUE(std::filesystem::exists(lock_file)) << unfinished;
    }
    write_lock_file("");
    auto error = std::async(std::launch::async, [this] { return opened(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    write_lock_file("1\n");
    EXPECT_THAT(error.get(), HasSubstr("process 1 ("));
}

TEST_F(tty, nothing_is_left_of_another_programs_settings) {
    termios left{};
    ASSERT_EQ(tcgetattr(other, &left), 0);
    left.c_iflag = IXON | IXOFF | IXANY | ISTRIP | INPCK | PARMRK | ICRNL | IUTF8;
    left.c_oflag = OPOST | ONLCR;
    left.c_cflag = CS7 | PARENB | PARODD | CSTOPB | HUPCL | CRTSCTS;
    left.c_lflag = ICANON | ECHO | ISIG | TOSTOP;
    left.c_cc[VMIN] = 0;
    left.c_cc[VTIME] = 9;
    left.c_cc[VINTR] = 'A';
    cfsetspeed(&left, B300);
    const struct {
        line_settings_t line;
        speed_t rate;
        tcflag_t flow;
    } rows[] = {{{}, B115200, 0}, {{9600, true}, B9600, CRTSCTS}, {{921600, false}, B921600, 0}};
    for (const auto& row : rows) {
        ASSERT_EQ(tcsetattr(other, TCSANOW, &left), 0);
        ASSERT_EQ(opened(row.line), "");
        termios set{};
        ASSERT_EQ(tcgetattr(other, &set), 0);
        EXPECT_EQ(set.c_iflag, static_cast<tcflag_t>(IGNBRK | IGNPAR));
        EXPECT_EQ(set.c_oflag | set.c_lflag, 0U);
        constexpr tcflag_t line_bits = CSIZE | PARENB | PARODD | CSTOPB | HUPCL | CRTSCTS | CREAD | CLOCAL;
        EXPECT_EQ(set.c_cflag & line_bits, CS8 | CREAD | CLOCAL | row.flow);
        EXPECT_EQ(cfgetospeed(&set), row.rate);
        EXPECT_EQ(cfgetispeed(&set), row.rate);
        EXPECT_TRUE(set.c_cc[VMIN] == 1 && set.c_cc[VTIME] == 0 && set.c_cc[VINTR] == _POSIX_VDISABLE);
    }
    EXPECT_THAT(opened({12345, false}), HasSubstr("does not take 12345 baud"));
}

}  // namespace
