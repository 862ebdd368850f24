#include "tests/system/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

namespace {

/// What the user who runs the tests has configured is not theirs.
const int no_configuration = setenv("XDG_CONFIG_HOME", "/nonexistent", 1);

/// Between fork and exec a child of a process with threads may wait for ever for what one of them held: it is spawned.
pid_t spawn_zpd(const arguments_t& arguments, int output, int errors) {
    std::vector<char*> argv{const_cast<char*>(ZPD_BINARY)};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t streams{};
    posix_spawn_file_actions_init(&streams);
    posix_spawn_file_actions_addopen(&streams, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&streams, errors, STDERR_FILENO);
    pid_t id = -1;
    if (posix_spawn(&id, ZPD_BINARY, &streams, nullptr, argv.data(), environ) != 0) {
        std::abort();  // to signal or wait for -1 would be for all processes
    }
    posix_spawn_file_actions_destroy(&streams);
    return id;
}

std::string contents(int file) {
    struct stat status {};
    fstat(file, &status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    text.resize(static_cast<size_t>(std::max<ssize_t>(0, pread(file, text.data(), text.size(), 0))));
    return text;
}

}  // namespace

bool eventually(const std::function<bool()>& holds, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

process_t::process_t(const arguments_t& arguments)
    : output_(memfd_create("output", MFD_CLOEXEC)),
      errors_(memfd_create("errors", MFD_CLOEXEC)),
      id_(spawn_zpd(arguments, output_, errors_)) {}

process_t::~process_t() {
    if (!has_ended()) {
        signal(SIGKILL);
        wait();
    }
    close(output_);
    close(errors_);
}

bool process_t::has_ended() {
    int status = 0;
    if (!status_ && waitpid(id_, &status, WNOHANG) == id_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_.has_value();
}

bool process_t::wait_for_line(const std::string& prefix) {
    const auto has_line = [&] { return ("\n" + output()).find("\n" + prefix) != std::string::npos; };
    return eventually([&] { return has_line() || has_ended(); }) && has_line();
}

void process_t::signal(int number) const {
    kill(id_, number);
}

std::optional<int> process_t::wait() {
    eventually([this] { return has_ended(); });
    return status_;
}

std::string process_t::output() const {
    return contents(output_);
}

std::string process_t::errors() const {
    return contents(errors_);
}

outcome_t zpd(const arguments_t& arguments) {
    process_t process(arguments);
    const int status = process.wait().value_or(-1);
    return {.status = status, .output = process.output(), .errors = process.errors()};
}
