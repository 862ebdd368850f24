#include "tests/system/at_line.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>

namespace {

bool is_complete(const std::string& reply) {
    return reply.ends_with("OK\r\n") || reply.ends_with("> ") || reply.find("ERROR") != std::string::npos;
}

}  // namespace

at_line_t::at_line_t(const std::string& tty) : descriptor_(open(tty.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    termios raw{};
    tcgetattr(descriptor_, &raw);
    cfmakeraw(&raw);
    tcsetattr(descriptor_, TCSANOW, &raw);
}

at_line_t::~at_line_t() {
    close(descriptor_);
}

std::string at_line_t::ask(const std::string& line) {
    std::string reply;
    if (write(descriptor_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        return reply;
    }
    pollfd readable{descriptor_, POLLIN, 0};
    while (!is_complete(reply) && poll(&readable, 1, 10000) > 0) {
        std::array<char, 512> octets{};
        const ssize_t count = read(descriptor_, octets.data(), octets.size());
        if (count <= 0) {
            break;
        }
        reply.append(octets.data(), static_cast<size_t>(count));
    }
    return reply;
}

std::string at_line_t::submit(const std::string& tpdu) {
    std::string prompt = ask("AT+CMGS=" + std::to_string(tpdu.size() / 2) + "\r");
    if (!prompt.ends_with("> ")) {
        return prompt;
    }
    return ask("00" + tpdu + "\x1a");  // 00: the service centre of the SIM
}
