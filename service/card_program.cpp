#include "service/card_program.h"

#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/text.h"

namespace {

/// What a program may take for a text: UTF-8, and nothing in it acts on a terminal or ends a line.
std::string plain_text(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const base::code_point_t point = base::first_code_point(text);
        const bool is_control = point.value < 0x20 || (point.value >= 0x7F && point.value < 0xA0);
        plain += is_control          ? std::string_view(" ")
                 : point.well_formed ? text.substr(0, point.length)
                                     : std::string_view("\uFFFD");
        text.remove_prefix(point.length);
    }
    return plain;
}

bool is_ours(std::string_view variable) {
    return variable.starts_with("ZPD_CARD_") || variable.starts_with("ZPD_HOME=");
}

std::vector<std::string> environment_for(const received_card_t& card, const std::filesystem::path& home) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!is_ours(*variable)) {
            variables.emplace_back(*variable);
        }
    }
    variables.push_back("ZPD_CARD_FILE=" + card.file.native());
    variables.push_back(fmt::format("ZPD_CARD_NUMBER={}", card.number));
    variables.push_back("ZPD_CARD_SENDER=" + plain_text(card.sender));
    variables.push_back(fmt::format("ZPD_CARD_TIME={}", card.time));
    variables.push_back("ZPD_CARD_NAME=" + plain_text(card.name));
    variables.push_back("ZPD_HOME=" + home.native());
    return variables;
}

/// A file that has no name and never waits for its reader.
base::descriptor_t input_of(std::string_view octets) {
    base::descriptor_t file(memfd_create("card", MFD_CLOEXEC));
    while (file && !octets.empty()) {
        const ssize_t written = write(file.get(), octets.data(), octets.size());
        if (written < 0) {
            return {};
        }
        octets.remove_prefix(static_cast<size_t>(written));
    }
    lseek(file.get(), 0, SEEK_SET);
    return file;
}

/// How a program starts: in a process group of its own, with the card, the service's output and nothing else of the
/// service's: no open files, no blocked or ignored signals.
class start_t {
  public:
    start_t(const std::filesystem::path& folder, int input) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
        posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~start_t() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    start_t(const start_t&) = delete;
    start_t& operator=(const start_t&) = delete;

    /// Returns an errno.
    int spawn(std::string program, std::vector<std::string>& environment, pid_t& process) const {
        std::vector<char*> variables;
        std::ranges::transform(environment, std::back_inserter(variables), [](std::string& one) { return one.data(); });
        variables.push_back(nullptr);
        const std::array<char*, 2> arguments{program.data(), nullptr};
        return posix_spawn(&process, program.c_str(), &actions_, &attributes_, arguments.data(), variables.data());
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

/// Waits for one of two descriptors, -1 for none; true when the first is readable in time.
bool is_ready(int awaited, int end, std::chrono::milliseconds limit) {
    const auto over = std::chrono::steady_clock::now() + limit;
    std::array<pollfd, 2> ready{pollfd{awaited, POLLIN, 0}, {end, POLLIN, 0}};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(over - std::chrono::steady_clock::now());
        const int count = poll(ready.data(), ready.size(), static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (count >= 0 || errno != EINTR) {
            return ready[0].revents != 0;
        }
    }
}

std::string words_of(int status) {
    if (WIFSIGNALED(status)) {
        return fmt::format("it was ended by signal {} ({})", WTERMSIG(status), sigdescr_np(WTERMSIG(status)));
    }
    return WEXITSTATUS(status) == 0 ? std::string() : fmt::format("it ended with status {}", WEXITSTATUS(status));
}

/// Waits for the end of a process group's leader; ends all of it when that takes too long, or the service ends.
std::string outcome_of(pid_t process, int end, const card_program_t::limits_t& limits) {
    const base::descriptor_t handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    const bool ended = is_ready(handle.get(), end, limits.run);
    if (!ended) {
        kill(-process, SIGTERM);
        is_ready(handle.get(), -1, limits.leave);
        kill(-process, SIGKILL);  // also what its leader has left behind
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    std::string words = words_of(status);
    if (ended || words.empty()) {
        return words;
    }
    const bool service_ended = is_ready(end, -1, std::chrono::milliseconds(0));
    return service_ended ? "the service ended meanwhile"
                         : fmt::format("it was ended after {} s",
                                       std::chrono::duration_cast<std::chrono::seconds>(limits.run).count());
}

}  // namespace

card_program_t::card_program_t(std::filesystem::path program, std::filesystem::path home, limits_t limits)
    : program_(std::move(program)), home_(std::move(home)), limits_(limits) {}

std::string card_program_t::run(const received_card_t& card, int end) const {
    const base::descriptor_t input = input_of(card.octets);
    if (!input) {
        return fmt::format("no room for its input: {}", base::errno_text(errno));
    }
    const start_t start(home_, input.get());
    std::vector<std::string> environment = environment_for(card, home_);
    pid_t process = 0;
    if (const int error = start.spawn(program_, environment, process); error != 0) {
        return fmt::format("it could not be started: {}", base::errno_text(error));
    }
    return outcome_of(process, end, limits_);
}

std::string card_program_t::problem(const std::filesystem::path& program) {
    std::error_code failed;
    const auto status = std::filesystem::status(program, failed);
    const std::string what = fmt::format("cannot run {} for cards: ", program.native());
    if (!std::filesystem::exists(status)) {
        return what + (failed ? failed.message() : base::errno_text(ENOENT));
    }
    if (!std::filesystem::is_regular_file(status)) {
        return what + "it is no file";
    }
    return access(program.c_str(), X_OK) == 0 ? std::string() : what + "chmod +x " + program.native();
}
