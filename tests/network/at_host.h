/// A host at a modem's tty, as a terminal program is one, or at its TCP port.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

namespace network {

inline constexpr int patience = 10'000;  // milliseconds; only a failing test waits so long

class host_t {
  public:
    explicit host_t(const std::filesystem::path& tty) : fd_(open(tty.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        EXPECT_GE(fd_, 0) << tty;
    }
    /// At a port of this machine.
    explicit host_t(uint16_t port) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        connected_ = connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        fcntl(fd_, F_SETFL, O_NONBLOCK);
    }
    ~host_t() { close(fd_); }
    host_t(const host_t&) = delete;
    host_t& operator=(const host_t&) = delete;

    int fd() const { return fd_; }
    /// Whether the port takes connections.
    bool connected() const { return connected_; }
    void send(std::string_view text) const {
        pollfd room = {fd_, POLLOUT, 0};
        while (!text.empty()) {
            ASSERT_EQ(poll(&room, 1, patience), 1) << "the modem takes no more";
            const ssize_t count = write(fd_, text.data(), text.size());
            text.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
        }
    }
    /// Up to and with `end`; what came when it does not come, or the tty is hung up.
    std::string read_until(const std::string& end) {
        size_t at = std::string::npos;
        while ((at = unread_.find(end)) == std::string::npos && more()) {
        }
        return take(at == std::string::npos ? unread_.size() : at + end.size());
    }
    std::string read(size_t count) {
        while (unread_.size() < count && more()) {
        }
        return take(std::min(count, unread_.size()));
    }
    /// Sends, and expects exactly this.
    void expect(const std::string& command, const std::string& reply) {
        send(command);
        EXPECT_EQ(read(reply.size()), reply) << "to " << command;
    }
    /// Submits a TPDU given in hexadecimal digits (3GPP TS 27.005 3.5.1); returns the reply.
    std::string submit(const std::string& tpdu) {
        send("AT+CMGS=" + std::to_string(tpdu.size() / 2) + "\r");
        read_until("\r\n> ");
        send("00" + tpdu + "\x1a");  // 00: the service centre of the SIM
        return read_until("OK\r\n");
    }
    /// Nothing has come besides what was read: the answer to the next command follows at once.
    void expect_nothing() { expect("AT\r", "\r\nOK\r\n"); }

  private:
    bool more() {
        pollfd wait = {fd_, POLLIN, 0};
        char octets[4096];
        ssize_t count = 0;
        if (poll(&wait, 1, patience) != 1 || (count = ::read(fd_, octets, sizeof octets)) <= 0) {
            return false;
        }
        unread_.append(octets, static_cast<size_t>(count));
        return true;
    }
    std::string take(size_t count) {
        std::string taken = unread_.substr(0, count);
        unread_.erase(0, count);
        return taken;
    }

    const int fd_;
    bool connected_ = false;
    std::string unread_;
};

}  // namespace network
