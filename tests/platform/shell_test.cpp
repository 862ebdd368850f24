#include <aygshell.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "tests/platform/fixture.h"

class shell_test_t : public home_test_t {
  protected:
    void SetUp() override {
        home_test_t::SetUp();
        ASSERT_EQ(mkfifo((box / "told").c_str(), 0600), 0);
        // A relative folder first, which does not count.
        setenv("PATH", ("home:" + (box / "bin").string() + ":/usr/bin:/bin").c_str(), 1);
    }
    void TearDown() override {
        setenv("PATH", path_.c_str(), 1);
        home_test_t::TearDown();
    }
    void install(const std::string& text) const {
        std::filesystem::create_directories(box / "bin");
        std::ofstream(box / "bin" / "xdg-open") << text;
        std::filesystem::permissions(box / "bin" / "xdg-open", std::filesystem::perms::owner_all);
    }
    /// What the launched program writes, to its end.
    std::string told() const {
        std::ostringstream text;
        text << std::ifstream(box / "told").rdbuf();
        return text.str();
    }
    static DWORD launch(LPCWSTR uri) {
        HANDLE output = INVALID_HANDLE_VALUE;
        BSTR text = SysAllocString(uri);
        const DWORD error = SHLaunchApplicationForURI(text, &output);
        SysFreeString(text);
        return error;
    }
    /// True when no child, dead or alive, is left within the time that a busy machine may need.
    static bool all_reaped() {
        siginfo_t info{};
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::yield();
        }
        return errno == ECHILD;
    }

  private:
    const std::string path_ = getenv("PATH");
};

TEST_F(shell_test_t, hands_the_uri_over_as_one_argument_in_a_clean_process) {
    const int open_file = fcntl(STDIN_FILENO, F_DUPFD, 100);  // beyond those that a shell takes for itself
    install("#!/bin/sh\nexec >'" + (box / "told").string() +
            "'\n"
            "echo \"$#:$1\"\n"
            "read pid name state parent group session rest </proc/self/stat\n"
            "[ $session = $$ ] && echo own session\n"
            "[ -e /proc/$$/fd/" +
            std::to_string(open_file) +
            " ] && echo open file\n"
            "while read field value; do\n"
            "[ $field$value = SigBlk:0000000000000000 ] && echo no blocked signals\n"
            "done </proc/self/status\n");
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    EXPECT_EQ(launch(TEXT("http://h/\u00E9 b;rm -rf $HOME `x` 'y'")), 0U);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(told(), "1:http://h/\xC3\xA9 b;rm -rf $HOME `x` 'y'\nown session\nno blocked signals\n");
    close(open_file);
    EXPECT_TRUE(all_reaped());
}

TEST_F(shell_test_t, does_not_wait_for_the_program_and_leaves_no_zombie) {
    install("#!/bin/sh\nread line <'" + (box / "told").string() + "'\n");
    EXPECT_EQ(launch(TEXT("x:")), 0U);
    std::ofstream(box / "told") << "go\n";
    EXPECT_TRUE(all_reaped());
    install("#!/bin/sh\nexit 1\n");
    EXPECT_EQ(launch(TEXT("x:")), 0U);
    EXPECT_TRUE(all_reaped());
    install("no program");
    EXPECT_EQ(launch(TEXT("x:")), ERROR_GEN_FAILURE);
    EXPECT_TRUE(all_reaped());
}

TEST_F(shell_test_t, refuses_what_is_no_uri_and_tells_when_nothing_can_launch_one) {
    put("xdg-open", "#!/bin/sh\n");
    std::filesystem::permissions(box / "home" / "xdg-open", std::filesystem::perms::owner_all);
    setenv("PATH", ("home::" + (box / "bin").string()).c_str(), 1);
    EXPECT_EQ(launch(TEXT("x:")), ERROR_NO_ASSOCIATION);
    install("#!/bin/sh\n");
    std::filesystem::permissions(box / "bin" / "xdg-open", std::filesystem::perms::owner_read);
    EXPECT_EQ(launch(TEXT("x:")), ERROR_NO_ASSOCIATION);
    for (LPCWSTR uri : {TEXT(""), TEXT("--version"), TEXT("http://h/\n"), TEXT("\x1B[0m"), TEXT("a\x7F")}) {
        EXPECT_EQ(launch(uri), ERROR_INVALID_PARAMETER) << testing::PrintToString(uri);
    }
    EXPECT_EQ(SHLaunchApplicationForURI(nullptr, nullptr), ERROR_INVALID_PARAMETER);
}
