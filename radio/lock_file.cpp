#include "radio/lock_file.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <thread>

#include "radio/warning.h"

namespace radio {

namespace {

const std::filesystem::path folder = "/run/lock";

// Stands behind the process id in lock files of ours; others look at the id alone.
constexpr std::string_view our_mark = "zpd";

constexpr pid_t highest_pid = 1 << 22;  // of Linux

// What a moment is, for a program that makes its file first and writes it then.
constexpr int most_looks = 5;
constexpr std::chrono::milliseconds between_looks(50);

std::string content_of(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool is_pid(int64_t number) {
    return number > 0 && number <= highest_pid;
}

// A number that something follows: one without may be half written.
std::optional<pid_t> pid_of_text(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    constexpr size_t most_digits = 7;
    if (end == 0 || end > most_digits || end == text.size() ||
        std::isspace(static_cast<unsigned char>(text[end])) == 0) {
        return std::nullopt;
    }
    const int number = std::stoi(std::string(text.substr(0, end)));
    return is_pid(number) ? std::optional<pid_t>(number) : std::nullopt;
}

// Four digits or blanks, the beginning of a text, make no number of a process.
std::optional<pid_t> pid_of_octets(std::string_view octets) {
    pid_t number = 0;
    if (octets.size() != sizeof number) {
        return std::nullopt;
    }
    std::memcpy(&number, octets.data(), sizeof number);
    return is_pid(number) ? std::optional(number) : std::nullopt;
}

// None for a file that names no process yet.
std::optional<pid_t> process_in(const std::string& content) {
    const std::optional<pid_t> number = pid_of_text(content);
    return number ? number : pid_of_octets(content);
}

// Whoever writes such a file holds the flock too: with that in hand, the file is that of a process that was killed,
// whoever has its number by now.
bool is_left_over_of_ours(const std::string& content) {
    std::istringstream words(content);
    std::string number, mark;
    return words >> number >> mark && mark == our_mark;
}

// A process that was killed, and not waited for by its parent yet, still takes signals.
bool is_alive(pid_t pid) {
    if (kill(pid, 0) != 0 && errno == ESRCH) {
        return false;
    }
    const std::string text = content_of(fmt::format("/proc/{}/stat", pid));
    // "pid (name) state ...", and the name may hold anything.
    const size_t name_end = text.rfind(") ");
    const char state = name_end == std::string::npos ? '?' : text[name_end + 2];
    return state != 'Z' && state != 'X';
}

bool is_another_that_lives(std::optional<pid_t> pid) {
    return pid && *pid != getpid() && is_alive(*pid);
}

std::string name_of(pid_t pid) {
    std::ifstream file(fmt::format("/proc/{}/comm", pid));
    std::string name;
    std::getline(file, name);
    return fmt::format("process {} ({})", pid, name.empty() ? "name unknown" : shown(name));
}

// Makes the lock file in one step, with its content in place, for programs of all users to read, whatever the umask.
bool write(const std::filesystem::path& path) {
    const std::string temporary = fmt::format("{}.{}", path.string(), getpid());
    {
        std::ofstream file(temporary, std::ios::trunc);
        file << fmt::format("{:10} {}\n", getpid(), our_mark);
        if (!file.flush()) {
            return false;
        }
    }
    chmod(temporary.c_str(), 0644);
    const bool made = link(temporary.c_str(), path.c_str()) == 0;
    const int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return made;
}

}  // namespace

lock_file_t::lock_file_t(const std::string& tty) {
    std::error_code ignored;
    std::string name = std::filesystem::canonical(tty, ignored).lexically_relative("/dev").string();
    std::ranges::replace(name, '/', '_');
    path_ = folder / ("LCK.." + name);
}

std::string lock_file_t::holder() const {
    const std::optional<pid_t> pid = process_in(content_of(path_));
    return is_another_that_lives(pid) ? name_of(*pid) : std::string();
}

// Programs of this kind hold the flock while they look at the file, so that two of them never take over at once.
lock_file_t::taking_t lock_file_t::take(std::string& other) {
    for (int look = 0; look < most_looks; ++look) {
        taken_ = write(path_);
        if (taken_) {
            return taking_t::taken;
        }
        if (errno != EEXIST) {
            return taking_t::cannot_be_written;
        }
        const std::string content = content_of(path_);
        const std::optional<pid_t> pid = process_in(content);
        if (!pid) {
            std::this_thread::sleep_for(between_looks);
        } else if (!is_left_over_of_ours(content) && is_another_that_lives(pid)) {
            other = name_of(*pid);
            return taking_t::held;
        } else if (unlink(path_.c_str()) != 0 && errno != ENOENT) {
            return taking_t::cannot_be_written;
        }
    }
    other = fmt::format("a program that has not written its number into {} (if there is none, remove that file)",
                        path_.string());
    return taking_t::held;
}

void lock_file_t::give_up() {
    if (taken_) {
        unlink(path_.c_str());
        taken_ = false;
    }
}

}  // namespace radio
