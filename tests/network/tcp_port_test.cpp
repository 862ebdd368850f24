// A modem that is reached over TCP besides its tty.
#include "network/tcp_port.h"

#include <csignal>

#include "tests/network/host.h"

namespace network {
namespace {

class tcp_port_test : public network_test {
  protected:
    tcp_port_test() {
        signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(network_->listen(alice, {}), "");
        port_ = tcp_address_named(network_->listens_at(alice)).value_or(tcp_address_t{}).port;
    }
    std::unique_ptr<host_t> connect() const {
        auto host = std::make_unique<host_t>(port_);
        EXPECT_TRUE(host->connected());
        host->send("ATE0\r");
        EXPECT_TRUE(host->read_until("OK\r\n").ends_with("\r\nOK\r\n"));
        return host;
    }
    uint16_t port_ = 0;
};

TEST_F(tcp_port_test, one_host_is_heard_at_a_time) {
    const auto at_tty = host(alice);
    auto first = connect();
    at_tty->send("AT+CMGF=1\r");
    host_t second(port_);
    EXPECT_TRUE(second.connected()) << "and waits";
    second.send("AT+CMGF?\r");
    submit(*host(bob), submit_to(alice, {1}));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    first->expect("AT+CMGD=?\r", "\r\n+CMGD: (1),(0-4)\r\n\r\nOK\r\n");
    first->expect_nothing();
    first.reset();
    second.expect("", "\r\n+CMGF: 0\r\n\r\nOK\r\n");
    shutdown(second.fd(), SHUT_RDWR);
    EXPECT_EQ(second.read_until("OK"), "");
    for (std::string reply; reply.empty();) {  // until the end of the connection is seen, the tty is not
        at_tty->send("AT+CMGF?\r");
        pollfd answer = {at_tty->fd(), POLLIN, 0};
        reply = poll(&answer, 1, 20) == 1 ? at_tty->read_until("OK\r\n") : "";
        EXPECT_TRUE(reply.empty() || reply == "\r\n+CMGF: 0\r\n\r\nOK\r\n") << "what came meanwhile was dropped";
    }
}

TEST_F(tcp_port_test, a_host_that_has_said_all_is_still_answered) {
    host_t host(port_);
    host.send("ATE0\r");
    host.send(
        "AT+CMGS=14\r0001000C91947100000020000401AA\x1a"
        "AT+CNUM\r");
    shutdown(host.fd(), SHUT_WR);
    EXPECT_TRUE(host.read_until("end").ends_with("\r\n+CNUM: ,\"" + alice + "\",145\r\n\r\nOK\r\n"));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
}

TEST_F(tcp_port_test, a_host_that_does_not_read_or_is_killed_harms_nobody) {
    auto deaf = connect();
    const std::string command = "AT+CLAC\r";
    size_t written = 0;
    pollfd room = {deaf->fd(), POLLOUT, 0};
    while (written < 100'000'000 && poll(&room, 1, 200) == 1) {  // until the modem stops taking more
        const ssize_t count = write(deaf->fd(), command.data(), command.size());
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    EXPECT_LT(written, 20'000'000U);
    const auto other = host(bob);
    submit(*other, submit_to(bob, {1}));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    deaf.reset();  // what it had not read breaks the connection
    auto next = connect();
    next->expect("AT+CMGF?\r", "\r\n+CMGF: 0\r\n\r\nOK\r\n");
    set_fault(alice, "late-answers=20");
    const linger abrupt{1, 0};
    next->send("AT\r");
    setsockopt(next->fd(), SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
    next.reset();
    connect()->expect_nothing();
}

TEST_F(tcp_port_test, faults_act_on_connections_too) {
    auto connected = connect();
    set_fault(alice, "single-octets");
    connected->expect("AT+CNUM\r", "\r\n+CNUM: ,\"" + alice + "\",145\r\n\r\nOK\r\n");
    set_fault(alice, "restart=1:^SYSSTART");
    EXPECT_EQ(connected->read_until("START\r\n"), "\r\n^SYSSTART\r\n");
    set_fault(alice, "silent=opened");
    connected->send("AT+CMGF=1\r");
    connected.reset();
    connected = connect();
    connected->expect("AT+CMGF?\r", "\r\n+CMGF: 1\r\n\r\nOK\r\n");
    set_fault(alice, "hang-up");
    EXPECT_EQ(connected->read_until("OK"), "");
    EXPECT_EQ(network_->listens_at(alice), "");
    EXPECT_FALSE(host_t(port_).connected());
    set_fault(alice, "return");
    EXPECT_EQ(network_->listens_at(alice), "127.0.0.1:" + std::to_string(port_));
    connect()->expect("AT+CMGF?\r", "\r\n+CMGF: 0\r\n\r\nOK\r\n");
}

TEST_F(tcp_port_test, says_where_it_cannot_listen_and_why) {
    const std::string taken = network_->listens_at(alice);
    EXPECT_EQ(network_->listen(bob, *tcp_address_named(taken)),
              "cannot listen at " + taken + ": Address already in use");
    EXPECT_EQ(network_->listen(bob, {"192.0.2.1", 0}), "cannot listen at 192.0.2.1:0: Cannot assign requested address");
    EXPECT_EQ(network_->listen(alice, {}), "the phone " + alice + " listens at " + taken + " already");
    EXPECT_EQ(network_->listen("1", {}), "the network has no phone 1");
    EXPECT_EQ(network_->listens_at(bob), "");
    for (const std::string wrong :
         {"", ":", "x", "65536", "-1", "1x", "host:1", "1.2.3:4", "::1:5", "[::1:5", "[::1]", "[1.2.3.4]:5"}) {
        EXPECT_FALSE(tcp_address_named(wrong)) << wrong;
    }
    for (const std::string right : {"127.0.0.1:0", "0.0.0.0:65535", "[::1]:5"}) {
        EXPECT_EQ(to_text(tcp_address_named(right).value_or(tcp_address_t{})), right);
    }
}

}  // namespace
}  // namespace network
