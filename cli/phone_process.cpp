#include "cli/phone_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <system_error>
#include <vector>

#include "base/text.h"

namespace {

constexpr int end_limit_ms = 10000;

}  // namespace

phone_process_t::~phone_process_t() {
    if (process_ < 0) {
        return;
    }
    kill(process_, SIGTERM);
    if (!wait_for_end(end_limit_ms)) {
        kill(process_, SIGKILL);
    }
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::string phone_process_t::start() {
    std::error_code failed;
    std::filesystem::create_directories(settings_.home, failed);
    if (failed) {
        return fmt::format("cannot make the folder {}: {}", settings_.home.native(), failed.message());
    }
    const std::filesystem::path log_file = settings_.home / "service.log";
    const base::descriptor_t log(open(log_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    std::array<int, 2> ends{};
    if (!log || pipe2(ends.data(), O_CLOEXEC) != 0) {
        return fmt::format("cannot write {}: {}", log_file.native(), base::errno_text(errno));
    }
    output_ = base::descriptor_t(ends[0]);
    const base::descriptor_t child_output(ends[1]);

    std::vector<std::string> words{"zpd",       "serve",         "--config",
                                   "/dev/null",  // the user's own is about another phone
                                   "--modem",   settings_.modem, "--home",   settings_.home.native(),
                                   "--device",  settings_.device};
    if (settings_.activate) {
        words.emplace_back("--activate");
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);

    const pid_t parent = getpid();
    process_ = fork();
    if (process_ == 0) {
        become(parent, arguments.data(), child_output.get(), log.get());
    }
    if (process_ < 0) {
        return fmt::format("cannot start a service: {}", base::errno_text(errno));
    }
    handle_ = base::descriptor_t(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)));
    return {};
}

/// In the child, a copy of one thread of many: only async-signal-safe calls.
void phone_process_t::become(pid_t parent, char* const* arguments, int output, int log) {
    if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || getppid() != parent) {
        _exit(127);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    if (dup2(output, STDOUT_FILENO) >= 0 && dup2(log, STDERR_FILENO) >= 0) {
        execv("/proc/self/exe", arguments);
    }
    _exit(127);
}

std::string phone_process_t::wait_until_ready(const base::end_signals_t& signals, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::string said;
    while (said.find('\n') == std::string::npos) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        std::array<pollfd, 2> ready{pollfd{output_.get(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}};
        const int count = left.count() > 0 ? poll(ready.data(), ready.size(), static_cast<int>(left.count())) : 0;
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return fmt::format("the service on {} is not ready after {} s{}", settings_.modem, limit.count(),
                               last_words());
        }
        if (ready[1].revents != 0) {
            return "interrupted";
        }
        std::array<char, 256> text{};
        const ssize_t length = read(output_.get(), text.data(), text.size());
        if (length <= 0) {
            return fmt::format("the service on {} did not start{}", settings_.modem, last_words());
        }
        said.append(text.data(), static_cast<size_t>(length));
    }
    return said.starts_with("ready") ? "" : fmt::format("the service on {} says: {}", settings_.modem, said);
}

/// The last line of the child's standard error.
std::string phone_process_t::last_words() const {
    std::ifstream log(settings_.home / "service.log");
    std::string last;
    for (std::string line; std::getline(log, line);) {
        last = line;
    }
    return last.empty() ? "" : ": " + last;
}

bool phone_process_t::wait_for_end(int milliseconds) const {
    pollfd ended{handle_.get(), POLLIN, 0};
    int count = 0;
    do {
        count = poll(&ended, 1, milliseconds);
    } while (count < 0 && errno == EINTR);
    return count > 0;
}
