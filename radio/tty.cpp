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
#include <iterator>
#include <utility>

#include "base/text.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr struct {
    unsigned baud;
    speed_t code;
} rates[] = {
    {1200, B1200},   {2400, B2400},     {4800, B4800},     {9600, B9600},     {19200, B19200},   {38400, B38400},
    {57600, B57600}, {115200, B115200}, {230400, B230400}, {460800, B460800}, {921600, B921600},
};

// B0, which hangs up, for a rate that is none of them.
speed_t code_of(unsigned baud) {
    const auto* const row = std::ranges::find(rates, baud, [](const auto& rate) { return rate.baud; });
    return row != std::end(rates) ? row->code : speed_t{B0};
}

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

// Nothing stays of the last program's settings. Breaks and damaged octets are dropped, control signals do not matter,
// and a close leaves DTR as it is: many a modem resets when it falls.
termios raw(termios settings, speed_t rate, bool hardware_flow) {
    settings.c_iflag = IGNBRK | IGNPAR;
    settings.c_oflag = 0;
    settings.c_lflag = 0;
    settings.c_cflag = CS8 | CREAD | CLOCAL | (hardware_flow ? CRTSCTS : 0);
    std::ranges::fill(settings.c_cc, cc_t{_POSIX_VDISABLE});
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    cfsetspeed(&settings, rate);
    return settings;
}

// tcsetattr succeeds as soon as the tty takes any of it. A tty without a line, a USB modem's, may take no rate.
std::string set_up(int descriptor, const std::string& path, const line_settings_t& line) {
    const unsigned baud = line.baud.value_or(line_settings_t::usual_baud);
    const speed_t rate = code_of(baud);
    termios settings{};
    if (tcgetattr(descriptor, &settings) != 0) {
        return failure(path, "set up", errno);
    }
    const termios wanted = raw(settings, rate, line.hardware_flow);
    if (rate != B0 && (tcsetattr(descriptor, TCSANOW, &wanted) != 0 || tcgetattr(descriptor, &settings) != 0)) {
        return failure(path, "set up", errno);
    }
    if (rate == B0 || (line.baud && cfgetospeed(&settings) != rate)) {
        return fmt::format("{} does not take {} baud", path, baud);
    }
    if (line.hardware_flow && (settings.c_cflag & CRTSCTS) == 0) {
        return fmt::format("{} has no hardware flow control", path);
    }
    return {};
}

}  // namespace

tty_t::~tty_t() {
    close();
}

std::string tty_t::open(const std::string& path, const line_settings_t& line) {
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
    if (error.empty()) {
        error = set_up(descriptor(), path, line);
    }
    if (!error.empty()) {
        close();
    }
    return error;
}

std::string tty_t::take(const std::string& path) {
    if (!isatty(descriptor())) {
        return fmt::format("{} is no tty", path);
    }
    lock_file_ = lock_file_t(path);
    const auto held_by = [&](const char* otherwise) {
        const std::string holder = lock_file_.holder();
        return held(path, holder.empty() ? otherwise : holder);
    };
    int exclusively = 0;
    // A privileged process opens a tty in exclusive mode all the same, so that the mode is asked for.
    if (ioctl(descriptor(), TIOCGEXCL, &exclusively) == 0 && exclusively != 0) {
        return held_by("another program, exclusively");
    }
    if (flock(descriptor(), LOCK_EX | LOCK_NB) != 0) {
        return held_by("another program, which has locked it");
    }
    std::string error = take_lock_file(path);
    if (error.empty() && !is_pseudo_terminal(descriptor())) {
        exclusive_ = ioctl(descriptor(), TIOCEXCL) == 0;
    }
    return error;
}

std::string tty_t::take_lock_file(const std::string& path) {
    std::string other;
    const lock_file_t::taking_t taking = lock_file_.take(other);
    if (taking == lock_file_t::taking_t::cannot_be_written && !std::exchange(warned_, true)) {
        warn(fmt::format("cannot write {}: programs that look only for it will not see that the tty is in use",
                         lock_file_.path().string()));
    }
    return taking == lock_file_t::taking_t::held ? held(path, other) : std::string();
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
    lock_file_.give_up();
    if (std::exchange(exclusive_, false)) {
        ioctl(descriptor(), TIOCNXCL);
    }
    descriptor_.close();
}

std::vector<unsigned> baud_rates() {
    std::vector<unsigned> all;
    for (const auto& rate : rates) {
        all.push_back(rate.baud);
    }
    return all;
}

}  // namespace radio
