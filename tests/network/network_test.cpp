// The network as those who start it see it: links, ttys, hosts that come and go, faults on demand.
#include "network/network.h"

#include <sys/ioctl.h>
#include <termios.h>

#include <fstream>
#include <sstream>

#include "tests/network/host.h"

namespace network {
namespace {

namespace fs = std::filesystem;

TEST_F(network_test, refuses_what_is_no_number_or_taken_with_a_reason) {
    for (const std::string number : {"", "+", "abc", "+49 170", "../x", "49/1", "+491700000001+", "++49", "*100#",
                                     "123456789012345678901", "491700000001"}) {
        error_.clear();
        EXPECT_FALSE(network_->attach(number, &error_)) << number;
        EXPECT_NE(error_, "") << number;
    }
    EXPECT_EQ(network_t::start(directory_, {"1"}, &error_), nullptr);
    EXPECT_EQ(error_, "another network runs in " + directory_.string());
    EXPECT_EQ(network_t::start(network_->link(alice), {}, &error_), nullptr) << "a tty is no directory";
    EXPECT_EQ(network_->set_fault("1", "silent"), "the network has no phone 1");
    EXPECT_EQ(network_->set_fault(bob, "nonsense=1"), "there is no fault \"nonsense\"; 'zpd fault --list' has all");
    std::istringstream malformed(
        "refuse refuse=x refuse=1x delay=-1 delivery-gap=x lose-results=4294967296 silent=maybe registration=far "
        "technology=x offers=gold prompt=? pin=123 return=1 clear=1 echo=x numeric-results=x chatter=\x1b errors=x "
        "storage=x sim-busy=x ussd=\"");
    for (std::string order; malformed >> order;) {
        EXPECT_NE(network_->set_fault(bob, order).find("\" is no "), std::string::npos) << order;
    }
    host(bob)->expect("AT+CREG?\r", "\r\n+CREG: 0,1\r\n\r\nOK\r\n");  // none of them took effect
}

TEST_F(network_test, makes_links_in_place_of_left_over_ones_only_and_removes_its_own) {
    EXPECT_TRUE(fs::is_character_file(network_->link(alice)));
    std::ofstream(directory_ / "111") << "precious";
    fs::create_symlink("111", directory_ / "222");
    EXPECT_FALSE(network_->attach("111", &error_));
    EXPECT_FALSE(network_->attach("222", &error_));
    EXPECT_EQ(error_, (directory_ / "222").string() +
                          ": something else is there already; remove it, or choose another directory");
    // A network that was killed: its tty is gone, or already another's.
    const fs::path living = fs::read_symlink(network_->link(bob));
    fs::create_symlink("/dev/pts/999999", directory_ / "333");
    fs::create_symlink(living, directory_ / "444");
    for (const std::string number : {"333", "444"}) {
        ASSERT_TRUE(network_->attach(number, &error_)) << error_;
        host(number)->expect("AT+CNUM\r", "\r\n+CNUM: ,\"" + number + "\",129\r\n\r\nOK\r\n");
    }
    network_.reset();
    const std::vector<fs::path> left(fs::directory_iterator(directory_), fs::directory_iterator{});
    EXPECT_EQ(left.size(), 2U) << "111 and 222";
    EXPECT_TRUE(fs::is_regular_file(directory_ / "222"));
}

TEST_F(network_test, the_next_host_finds_a_clean_tty) {
    {
        const auto first = host(bob);
        ioctl(first->fd(), TIOCEXCL);
        termios settings{};
        tcgetattr(first->fd(), &settings);
        settings.c_lflag |= ECHO | ICANON;
        tcsetattr(first->fd(), TCSANOW, &settings);
        first->send("AT+CMGL=4;+CSQ;+CSQ\r");
        submit(*host(alice), submit_to(bob, {1}));
        EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    }
    // Two rounds of the network's thread: by then it has noticed.
    set_fault(bob, "silent=off");
    set_fault(bob, "silent=off");
    host_t second(network_->link(bob));
    second.expect("AT+CMGD=?\r", "\r\n+CMGD: (1),(0-4)\r\n\r\nOK\r\n");
    int exclusive = 1;
    EXPECT_EQ(ioctl(second.fd(), TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 0);
}

TEST_F(network_test, a_host_that_does_not_read_harms_nobody_and_gets_what_waits_when_it_does) {
    const auto deaf = host(bob, {"AT+CNMI=2,2"});
    const std::string command = "AT+CLAC\r";
    size_t written = 0;
    pollfd room = {deaf->fd(), POLLOUT, 0};
    while (written < 10'000'000 && poll(&room, 1, 200) == 1) {  // until the modem stops taking more
        const ssize_t count = write(deaf->fd(), command.data(), command.size());
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    EXPECT_LT(written, 1'000'000U);
    const auto from = host(alice);
    submit(*from, submit_to(bob, {1}));
    EXPECT_EQ(from->read_until("OK\r\n"), sent(0));
    EXPECT_EQ(network_->statistics().waiting, 1U);
    EXPECT_TRUE(deaf->read_until("+CMT: ").ends_with("+CMT: "));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
}

TEST_F(network_test, refuses_submissions_and_loses_results_on_demand) {
    const auto from = host(alice);
    set_fault(alice, "refuse=38x2");
    set_fault(alice, "lose-results=1");
    const std::string refused = "\r\n+CMS ERROR: 38\r\n";
    submit(*from, submit_to(bob, {1}));
    EXPECT_EQ(from->read(refused.size()), refused);
    from->expect("AT+CMEE=2\r", "\r\nOK\r\n");
    submit(*from, submit_to(bob, {1}));
    const std::string verbose = "\r\n+CMS ERROR: Network out of order\r\n";
    EXPECT_EQ(from->read(verbose.size()), verbose);
    submit(*from, submit_to(bob, {1}));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    from->expect_nothing();
    submit(*from, submit_to(bob, {2}));
    EXPECT_EQ(from->read_until("OK\r\n"), sent(3)) << "each that went on the air has its reference";
}

TEST_F(network_test, a_silent_modem_works_but_says_nothing) {
    const auto host = this->host(alice);
    set_fault(alice, "silent");
    host->send("AT+CMGS=14\r0001000C91947100000020000401AA\x1a");
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    set_fault(alice, "clear");
    host->expect_nothing();
}

TEST_F(network_test, coverage_comes_and_goes) {
    const auto from = host(alice, {"AT+CREG=1", "AT+CEREG=2"});
    set_fault(alice, "registration=searching");
    from->expect("AT+CSQ\r", "\r\n+CREG: 2\r\n\r\n+CSQ: 99,99\r\n\r\nOK\r\n");
    from->expect("AT+COPS?\r", "\r\n+COPS: 0\r\n\r\nOK\r\n");
    submit(*from, submit_to(bob, {1}));
    const std::string refused = "\r\n+CMS ERROR: 331\r\n";
    EXPECT_EQ(from->read(refused.size()), refused);

    const auto to = host(bob);
    submit(*to, submit_to(alice, {1}));
    EXPECT_EQ(to->read_until("OK\r\n"), sent(0));
    EXPECT_EQ(network_->statistics().waiting, 1U);
    set_fault(alice, "registration=roaming");
    set_fault(alice, "technology=lte");
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    from->expect("AT+CREG?\r", "\r\n+CREG: 5\r\n\r\n+CEREG: 5,\"0001\",\"00000001\",7\r\n\r\n+CREG: 1,5\r\n\r\nOK\r\n");
}

TEST_F(network_test, a_modem_hangs_up_and_returns_with_its_messages) {
    const auto from = host(alice);
    submit(*from, submit_to(bob, {1}));
    EXPECT_EQ(from->read_until("OK\r\n"), sent(0));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    const auto lost = host(bob, {"AT+CNMI=2,1"});
    set_fault(bob, "hang-up");
    EXPECT_EQ(lost->read_until("OK"), "");
    EXPECT_FALSE(fs::exists(fs::symlink_status(network_->link(bob))));
    submit(*from, submit_to(bob, {2}));
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 1));
    ASSERT_TRUE(network_->attach(bob, &error_)) << error_;
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 0));
    host_t back(network_->link(bob));
    back.expect("AT+CNMI?;+CMGD=?\r", "AT+CNMI?;+CMGD=?\r\r\n+CNMI: 0,0,0,0,0\r\n\r\n+CMGD: (1,2),(0-4)\r\n\r\nOK\r\n");
}

}  // namespace
}  // namespace network
