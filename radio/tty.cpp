#include "radio/tty.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

#include "base/text.h"
#include "radio/warning.h"

namespace radio {

namespace {

const std::filesystem::path lock_folder = "/run/lock";

// Stands behind the process id in lock files of ours; others look at the id alone.
constexpr std::string_view our_mark = "zpd";

std::string failure(const std::string& path, const char* attempt, int error) {
    return fmt::format("cannot {} {}: {}", attempt, path, base::errno_text(error));
}

std::string held(const std::string& path, const std::string& holder) {
    return fmt::format("{} is in use by {}; stop that program first", path, holder);
}

bool is_pseudo_terminal(int descriptor) {
    constexpr unsigned first_major = 136;  // 136 to 143: Unix98 pseudo-terminals
    constexpr unsigned last_major = 143;
    struct stat status {};
    return fstat(descriptor, &status) == 0 && major(status.st_rdev) >= first_major &&
           major(status.st_rdev) <= last_major;
}

std::filesystem::path lock_file_of(const std::string& path) {
    std::error_code ignored;
    std::string name = std::filesystem::canonical(path, ignored).lexically_relative("/dev").string();
    std::ranges::replace(name, '/', '_');
    return lock_folder / ("LCK.." + name);
}

// A process that was killed, and not waited for by its parent yet, still takes signals.
bool is_alive(pid_t pid) {
    if (kill(pid, 0) != 0 && errno == ESRCH) {
        return false;
    }
    std::ifstream file(fmt::format("/proc/{}/stat", pid));
    const std::string text(std::istreambuf_iterator<char>(file), {});
    // "pid (name) state ...", and the name may hold anything.
    const size_t name_end = text.rfind(") ");
    const char state = name_end == std::string::npos ? '?' : text[name_end + 2];
    return state != 'Z' && state != 'X';
}

// The process that a lock file names; 0 when that is this one, none, or dead.
pid_t holder_of(const std::filesystem::path& lock_file) {
    std::ifstream file(lock_file);
    pid_t pid = 0;
    if (!(file >> pid) || pid <= 0 || pid == getpid() || !is_alive(pid)) {
        return 0;
    }
    return pid;
}

// Whoever writes such a file holds the flock too: with that in hand, the file is that of a process that was killed,
// whoever has its number by now.
bool is_left_over(const std::filesystem::path& lock_file) {
    std::ifstream file(lock_file);
    pid_t pid = 0;
    std::string mark;
    return file >> pid >> mark && mark == our_mark;
}

std::string name_of(pid_t pid) {
    std::ifstream file(fmt::format("/proc/{}/comm", pid));
    std::string name;
    std::getline(file, name);
    return fmt::format("process {} ({})", pid, name.empty() ? "name unknown" : shown(name));
}

bool set_raw(int descriptor) {
    termios settings{};
    if (tcgetattr(descriptor, &settings) != 0) {
        return false;
    }
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    // Serial modems find the rate out by themselves; for others it has no meaning.
    cfsetspeed(&settings, B115200);
    return tcsetattr(descriptor, TCSANOW, &settings) == 0;
}

// Makes the lock file in one step, with its content in place.
bool write_lock_file(const std::filesystem::path& lock_file) {
    const std::string temporary = fmt::format("{}.{}", lock_file.string(), getpid());
    {
        std::ofstream file(temporary, std::ios::trunc);
        file << fmt::format("{:10} {}\n", getpid(), our_mark);
        if (!file.flush()) {
            return false;
        }
    }
    const bool made = link(temporary.c_str(), lock_file.c_str()) == 0;
    const int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return made;
}

}  // namespace

tty_t::~tty_t() {
    close();
}

std::string tty_t::open(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return failure(path, "open", errno);
    }
    if (!S_ISCHR(status.st_mode)) {
        return fmt::format("{} is no tty", path);
    }
    descriptor_ = base::descriptor_t(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor_) {
        return errno == EBUSY ? held(path, "another program, exclusively") : failure(path, "open", errno);
    }
    std::string error = take(path);
    if (!error.empty()) {
        close();
    }
    return error;
}

std::string tty_t::take(const std::string& path) {
    if (!isatty(descriptor())) {
        return fmt::format("{} is no tty", path);
    }
    const std::filesystem::path lock_file = lock_file_of(path);
    int exclusively = 0;
    // A privileged process opens a tty in exclusive mode all the same, so that the mode is asked for.
    if (ioctl(descriptor(), TIOCGEXCL, &exclusively) == 0 && exclusively != 0) {
        const pid_t holder = holder_of(lock_file);
        return held(path, holder != 0 ? name_of(holder) : "another program, exclusively");
    }
    if (flock(descriptor(), LOCK_EX | LOCK_NB) != 0) {
        const pid_t holder = holder_of(lock_file);
        return held(path, holder != 0 ? name_of(holder) : "another program, which has locked it");
    }
    std::string error = take_lock_file(path, lock_file);
    if (!error.empty()) {
        return error;
    }
    if (!set_raw(descriptor())) {
        return failure(path, "set up", errno);
    }
    if (!is_pseudo_terminal(descriptor())) {
        exclusive_ = ioctl(descriptor(), TIOCEXCL) == 0;
    }
    return {};
}

// Programs of this kind hold the flock while they look at the file, so that two of them never take over at once.
std::string tty_t::take_lock_file(const std::string& path, const std::filesystem::path& lock_file) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (write_lock_file(lock_file)) {
            lock_file_ = lock_file;
            return {};
        }
        if (errno != EEXIST) {
            break;
        }
        const pid_t holder = is_left_over(lock_file) ? 0 : holder_of(lock_file);
        if (holder != 0) {
            return held(path, name_of(holder));
        }
        unlink(lock_file.c_str());
    }
    if (!std::exchange(warned_, true)) {
        warn(fmt::format("cannot write {}: programs that look only for it will not see that the tty is in use",
                         lock_file.string()));
    }
    return {};
}

std::string link_to(const std::string& tty, const std::filesystem::path& folder) {
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::canonical(tty, failed);
    if (failed) {
        return {};
    }
    for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        std::error_code dangling;
        if (std::filesystem::canonical(entry->path(), dangling) == real && !dangling) {
            return entry->path();
        }
    }
    return {};
}

void tty_t::close() {
    if (!lock_file_.empty()) {
        unlink(lock_file_.c_str());
        lock_file_.clear();
    }
    if (std::exchange(exclusive_, false)) {
        ioctl(descriptor(), TIOCNXCL);
    }
    descriptor_.close();
}

}  // namespace radio
