/// A host at a modem's tty, as a terminal program is one, and a network in a folder of its own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "network/network.h"
#include "platform/linux/hex.h"
#include "radio/tpdu.h"

namespace network {

inline constexpr int patience = 10'000;  // milliseconds; only a failing test waits so long

class host_t {
  public:
    explicit host_t(const std::filesystem::path& tty) : fd_(open(tty.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        EXPECT_GE(fd_, 0) << tty;
    }
    ~host_t() { close(fd_); }
    host_t(const host_t&) = delete;
    host_t& operator=(const host_t&) = delete;

    int fd() const { return fd_; }
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
    std::string unread_;
};

inline const std::string alice = "+491700000001";
inline const std::string bob = "+491700000002";

class network_test : public testing::Test {
  public:
    ~network_test() override {
        network_.reset();
        std::filesystem::remove_all(directory_);
    }

  protected:
    network_test() {
        char folder[] = "/tmp/network_test_XXXXXX";
        directory_ = mkdtemp(folder);
        network_ = network_t::start(directory_, {alice, bob}, &error_);
        EXPECT_NE(network_, nullptr) << error_;
    }

    /// A host with echo off and `commands` done.
    std::unique_ptr<host_t> host(const std::string& number, const std::vector<std::string>& commands = {}) const {
        auto host = std::make_unique<host_t>(network_->link(number));
        host->send("ATE0\r");
        host->read_until("OK\r\n");
        for (const std::string& command : commands) {
            host->send(command + "\r");
            expect_ok(host->read_until("OK\r\n"), command);
        }
        return host;
    }
    static void expect_ok(const std::string& reply, const std::string& command) {
        EXPECT_TRUE(reply.ends_with("\r\nOK\r\n")) << command << ": " << reply;
    }
    void set_fault(const std::string& number, const std::string& order) const {
        EXPECT_EQ(network_->set_fault(number, order), "");
    }
    bool wait_for(uint64_t statistics_t::*count, uint64_t value) const {
        return network_->wait_until([&](const statistics_t& now) { return now.*count == value; },
                                    std::chrono::milliseconds(patience));
    }

    std::filesystem::path directory_;
    std::string error_;
    std::unique_ptr<network_t> network_;
};

inline tpdu::submit_t submit_to(const std::string& number, tpdu::octets_t user_data) {
    tpdu::submit_t submit;
    submit.destination = tpdu::address_from_number(number).value();
    submit.data_coding = tpdu::data_coding_8bit;
    submit.user_data_length = static_cast<uint8_t>(user_data.size());
    submit.user_data = std::move(user_data);
    return submit;
}

/// The two steps of AT+CMGS, after which the result follows.
inline void submit(host_t& host, const tpdu::submit_t& submit) {
    const tpdu::octets_t octets = tpdu::encode(submit).value();
    host.expect("AT+CMGS=" + std::to_string(octets.size()) + "\r", "\r\n> ");
    host.send("00" + platform::to_hex(octets) + "\x1a");
}

inline std::string sent(unsigned reference) {
    return "\r\n+CMGS: " + std::to_string(reference) + "\r\n\r\nOK\r\n";
}

/// The SMS-DELIVER in the last line but `lines_after` of a reply.
inline tpdu::deliver_t delivered(const std::string& reply) {
    const size_t begin = reply.find("\r\n0") + 2;
    const auto octets = platform::from_hex(reply.substr(begin, reply.find("\r\n", begin) - begin));
    const auto pdu = octets ? tpdu::decode_pdu(*octets) : std::nullopt;
    const auto deliver = pdu ? tpdu::decode_deliver(pdu->tpdu) : std::nullopt;
    EXPECT_TRUE(deliver) << reply;
    return deliver.value_or(tpdu::deliver_t{});
}

}  // namespace network
