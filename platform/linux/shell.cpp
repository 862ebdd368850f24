#include <aygshell.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "base/text.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"
#include "platform/linux/thread.h"

namespace {

/// The full path of a program on PATH, empty when there is none. Relative folders of PATH do not count: what the
/// service starts may not hang on where it was started.
std::filesystem::path find_program(const char* name) {
    const char* const variable = std::getenv("PATH");
    std::string_view folders = variable == nullptr ? std::string_view("/usr/local/bin:/usr/bin:/bin") : variable;
    while (!folders.empty()) {
        const size_t length = std::min(folders.find(':'), folders.size());
        std::filesystem::path program = std::filesystem::path(folders.substr(0, length)) / name;
        std::error_code ignored;
        if (program.is_absolute() && std::filesystem::is_regular_file(program, ignored) &&
            access(program.c_str(), X_OK) == 0) {
            return program;
        }
        folders.remove_prefix(std::min(length + 1, folders.size()));
    }
    return {};
}

/// A URI that could be taken for an option, or break a line somewhere, is none.
bool is_launchable(std::string_view uri) {
    const auto is_control = [](unsigned char octet) { return octet < 0x20 || octet == 0x7F; };
    return !uri.empty() && uri.front() != '-' && std::none_of(uri.begin(), uri.end(), is_control);
}

/// Starts `program argument` in a session of its own, with nothing of ours but the environment: no open files, no
/// blocked or ignored signals. Returns an errno.
int spawn(const std::string& program, const std::string& argument, pid_t& process) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string name = program;
    std::string text = argument;
    char* const arguments[] = {name.data(), text.data(), nullptr};
    const int error = posix_spawn(&process, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

/// Launches on a thread of its own, which then waits for the program's end, so that no zombie stays.
DWORD launch(const std::string& program, const std::string& argument) {
    const auto outcome = std::make_shared<std::promise<int>>();
    std::future<int> started = outcome->get_future();
    const bool runs = platform::start_detached(0, [program, argument, outcome] {
        pid_t process = 0;
        const int error = spawn(program, argument, process);
        outcome->set_value(error);
        if (error == 0) {
            while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    });
    if (!runs) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    const int error = started.get();
    return error == 0 ? ERROR_SUCCESS : platform::error_of_errno(error);
}

}  // namespace

DWORD SHLaunchApplicationForURI(BSTR uri, HANDLE* output) {
    if (const auto error = platform::injected_failure(__func__)) {
        return *error;
    }
    const std::string text = uri == nullptr ? std::string() : base::to_utf8(uri);
    if (!is_launchable(text)) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::filesystem::path program = find_program("xdg-open");
    if (program.empty()) {
        return ERROR_NO_ASSOCIATION;
    }
    const DWORD error = launch(program, text);
    if (error == ERROR_SUCCESS && output != nullptr) {
        *output = nullptr;
    }
    return error;
}

BSTR SysAllocString(LPCWSTR text) {
    if (const auto error = platform::injected_failure(__func__)) {
        return platform::failed(*error, BSTR{});
    }
    if (text == nullptr) {
        return nullptr;
    }
    const std::u16string_view source = text;
    WCHAR* const copy = new WCHAR[source.size() + 1];
    *std::copy(source.begin(), source.end(), copy) = 0;
    return copy;
}

void SysFreeString(BSTR text) {
    delete[] text;
}
