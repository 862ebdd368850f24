#include "network/pty.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "network/system_limits.h"

namespace network {

namespace {

void make_raw(int tty) {
    termios settings{};
    if (tcgetattr(tty, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(tty, TCSANOW, &settings);
    }
}

}  // namespace

std::unique_ptr<pty_t> pty_t::open(std::string* error) {
    std::array<char, 64> name{};
    base::descriptor_t master(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    base::descriptor_t slave;
    if (master && grantpt(master.get()) == 0 && unlockpt(master.get()) == 0 &&
        ptsname_r(master.get(), name.data(), name.size()) == 0) {
        slave = base::descriptor_t(::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
    if (!slave) {
        *error = "cannot make a pseudo-terminal: " + limit_text(errno);
        return nullptr;
    }
    make_raw(slave.get());
    return std::unique_ptr<pty_t>(new pty_t(std::move(master), std::move(slave), name.data()));
}

void pty_t::read(std::string& into) {
    std::array<char, 4096> octets;
    const ssize_t count = ::read(master_.get(), octets.data(), octets.size());
    if (count > 0) {
        into.append(octets.data(), static_cast<size_t>(count));
    }
}

void pty_t::write(std::string& from) {
    const ssize_t count = from.empty() ? 0 : ::write(master_.get(), from.data(), from.size());
    if (count > 0) {
        from.erase(0, static_cast<size_t>(count));
    }
}

void pty_t::forget_host() const {
    ioctl(slave_.get(), TIOCNXCL);
    make_raw(slave_.get());
    tcflush(slave_.get(), TCIFLUSH);
}

}  // namespace network
