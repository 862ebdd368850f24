// Bare dialogues: datagrams of a card submitted over a tty, one after the other, by one thread that does nothing else.
// No program that speaks to a modem in PDU mode, one command at a time, sends faster. Arguments: the tty, how many, and
// the digits of the receiver's number, of which there are eleven. Prints the seconds that it took.
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

[[noreturn]] void fail(const std::string& reason) {
    fmt::print(stderr, "{}\n", reason);
    exit(1);
}

int open_tty(const char* path) {
    const int tty = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings{};
    if (tty < 0 || tcgetattr(tty, &settings) != 0) {
        fail(fmt::format("cannot open {}", path));
    }
    cfmakeraw(&settings);
    tcsetattr(tty, TCSANOW, &settings);
    return tty;
}

/// Writes, and reads up to an answer with this end.
void exchange(int tty, const std::string& octets, std::string_view end) {
    constexpr int longest = 10'000;
    if (write(tty, octets.data(), octets.size()) != static_cast<ssize_t>(octets.size())) {
        fail("the tty does not take all at once");
    }
    std::string answer;
    while (!answer.ends_with(end)) {
        pollfd readable{tty, POLLIN, 0};
        char buffer[1024];
        const ssize_t count = poll(&readable, 1, longest) == 1 ? read(tty, buffer, sizeof buffer) : -1;
        if (count <= 0) {
            fail(fmt::format("no such answer to {}: {}", octets, answer));
        }
        answer.append(buffer, static_cast<size_t>(count));
        if (answer.find("ERROR") != std::string::npos) {
            fail(answer);
        }
    }
}

/// SMS-SUBMIT (3GPP TS 23.040 9.2.2.2) of 140 octets, to the modem's own service centre.
std::string submit(const std::string& number, unsigned reference) {
    std::string semi_octets;
    for (size_t i = 0; i < number.size(); i += 2) {
        semi_octets += i + 1 < number.size() ? number[i + 1] : 'F';
        semi_octets += number[i];
    }
    const std::string header = fmt::format("0B0504{:04X}{:04X}0003{:02X}FFFE", 0x23F4, 0x23F4, reference % 256);
    std::string body;
    for (unsigned octet = 0; octet < 128; ++octet) {
        body += fmt::format("{:02X}", (octet + reference) % 256);
    }
    return fmt::format("004100{:02X}91{}0004{:02X}{}{}", number.size(), semi_octets, 140, header, body);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 4) {
        fail("dialogue TTY COUNT DIGITS");
    }
    const int tty = open_tty(arguments[1]);
    exchange(tty, "ATE0\r", "OK\r\n");
    exchange(tty, "AT+CMGF=0\r", "OK\r\n");
    const auto begin = std::chrono::steady_clock::now();
    const long datagrams = strtol(arguments[2], nullptr, 10);
    for (long i = 0; i < datagrams; ++i) {
        const std::string pdu = submit(arguments[3], static_cast<unsigned>(i));
        exchange(tty, fmt::format("AT+CMGS={}\r", pdu.size() / 2 - 1), "> ");
        exchange(tty, pdu + '\x1A', "OK\r\n");
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    fmt::print("{:.6f}\n", taken.count());
    close(tty);
}
