// A network as large as those who test with many phones need it: every phone sends at once, and all of it arrives.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>

#include <bitset>
#include <fstream>

#include "network/system_limits.h"
#include "tests/network/host.h"

namespace network {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
constexpr size_t phones = sanitized ? 100 : 1000;
constexpr size_t cards_a_phone = 10;
constexpr size_t datagrams_a_card = 2;
constexpr size_t datagrams_a_phone = cards_a_phone * datagrams_a_card;

std::string number_of(size_t phone) {
    return "+4917" + std::to_string(1'000'000 + phone);
}

/// Of a concatenated message to application port 9204 (3GPP TS 23.040 9.2.3.24), other octets for each card.
air::octets_t datagram(size_t from, size_t to, size_t part) {
    air::octets_t octets = {
        11, 5, 4, 0x23, 0xF4, 0, 0, 0, 3, static_cast<uint8_t>(to), datagrams_a_card, static_cast<uint8_t>(part + 1)};
    for (size_t i = 0; octets.size() < air::max_user_data; ++i) {
        octets.push_back(static_cast<uint8_t>((from * 31 + to * 17 + part * 7 + i * i) >> (i % 3)));
    }
    return octets;
}

/// The host at one of the ttys: sends its cards one datagram after the other, and checks what comes meanwhile.
class sender_t {
  public:
    sender_t(size_t phone, const std::filesystem::path& tty)
        : phone_(phone), fd_(open(tty.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        say("ATE0;+CNMI=2,2\r");
    }
    int fd() const { return fd_.get(); }
    bool done() const { return sent_ == datagrams_a_phone && received_.all(); }
    size_t sent() const { return sent_; }

    void hear() {
        char octets[4096];
        const ssize_t count = read(fd(), octets, sizeof octets);
        heard_.append(octets, static_cast<size_t>(std::max<ssize_t>(count, 0)));
        for (size_t end = 0; (end = heard_.find("\r\n")) != std::string::npos;) {
            const std::string line = heard_.substr(0, end);
            heard_.erase(0, end + 2);
            take(line);
        }
        if (heard_ == "> ") {
            heard_.clear();
            say("00" + base::to_hex(tpdu_) + "\x1a");
        }
    }

  private:
    void say(const std::string& text) const {
        ASSERT_EQ(write(fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void take(const std::string& line) {
        if (line == "OK") {
            sent_ += tpdu_.empty() ? 0 : 1;
            send_next();
        } else if (line.starts_with("069199")) {
            take_delivery(line);
        } else {
            const bool expected = line.empty() || line.starts_with("+CM") || line.starts_with("ATE0");
            EXPECT_TRUE(expected) << line;
        }
    }
    void send_next() {
        if (sent_ == datagrams_a_phone) {
            return;
        }
        const size_t to = (phone_ + 1 + sent_ / datagrams_a_card) % phones;
        air::submit_t submit = submit_to(number_of(to), datagram(phone_, to, sent_ % datagrams_a_card));
        submit.header_indicator = true;
        tpdu_ = air::encode(submit).value();
        say("AT+CMGS=" + std::to_string(tpdu_.size()) + "\r");
    }
    /// Each comes once, from one of those that send to this phone.
    void take_delivery(const std::string& line) {
        const auto pdu = air::decode_pdu(base::from_hex(line).value());
        const air::deliver_t deliver = air::decode_deliver(pdu->tpdu).value();
        const size_t from = std::stoul(air::number_from_address(deliver.originator).substr(5)) - 1'000'000;
        const size_t part = deliver.user_data.at(11) - 1U;
        EXPECT_EQ(deliver.user_data, datagram(from, phone_, part)) << number_of(from) << " to " << number_of(phone_);
        const size_t sender = (phone_ + phones - from - 1) % phones;
        ASSERT_LT(sender, cards_a_phone) << number_of(from);
        EXPECT_FALSE(received_.test(sender * datagrams_a_card + part)) << "twice";
        received_.set(sender * datagrams_a_card + part);
    }

    const size_t phone_;
    const base::descriptor_t fd_;
    std::string heard_;
    air::octets_t tpdu_;
    size_t sent_ = 0;
    std::bitset<datagrams_a_phone> received_;
};

size_t number_in(const std::string& file) {
    size_t number = 0;
    std::ifstream(file) >> number;
    return number;
}

/// In pages.
size_t resident_memory() {
    size_t size = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
}

/// What this machine lacks for the test, if anything.
std::string lack() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    constexpr size_t descriptors = 3 * phones + 100;  // both ends of each tty, and the test's
    const std::string ptys = "/proc/sys/kernel/pty/";
    const size_t taken = number_in(ptys + "nr") + number_in(ptys + "reserve") + phones;
    return limit.rlim_max < descriptors      ? "needs ulimit -Hn " + std::to_string(descriptors)
           : number_in(ptys + "max") < taken ? "needs " + ptys + "max of " + std::to_string(taken)
                                             : "";
}

TEST(scale, every_phone_sends_at_once_and_all_arrives_in_bounded_memory) {
    if (const std::string missing = lack(); !missing.empty()) {
        GTEST_SKIP() << missing;
    }
    char folder[] = "/tmp/scale_test_XXXXXX";
    const std::filesystem::path directory = mkdtemp(folder);
    std::vector<std::string> numbers;
    for (size_t i = 0; i < phones; ++i) {
        numbers.push_back(number_of(i));
    }
    std::string error;
    auto network = network_t::start(directory, numbers, &error);
    ASSERT_NE(network, nullptr) << error;
    raise_descriptor_limit(phones);

    const base::descriptor_t set(epoll_create1(EPOLL_CLOEXEC));
    std::vector<std::unique_ptr<sender_t>> hosts;
    for (size_t i = 0; i < phones; ++i) {
        hosts.push_back(std::make_unique<sender_t>(i, network->link(number_of(i))));
        epoll_event event{EPOLLIN, {hosts.back().get()}};
        ASSERT_EQ(epoll_ctl(set.get(), EPOLL_CTL_ADD, hosts.back()->fd(), &event), 0);
    }
    const auto done = [&] { return std::ranges::all_of(hosts, [](const auto& host) { return host->done(); }); };
    size_t after_a_tenth = 0;
    std::array<epoll_event, 64> events;
    for (int count = 1; count > 0 && !done();) {
        count = epoll_wait(set.get(), events.data(), events.size(), patience);
        for (int i = 0; i < count; ++i) {
            static_cast<sender_t*>(events[static_cast<size_t>(i)].data.ptr)->hear();
        }
        if (after_a_tenth == 0 && network->statistics().delivered >= phones * datagrams_a_phone / 10) {
            after_a_tenth = resident_memory();
        }
    }
    EXPECT_TRUE(done());
    const size_t total = phones * datagrams_a_phone;
    EXPECT_EQ(network->statistics(), (statistics_t{total, total, 0}));
    // What grows still is what is remembered of each phone's last submissions; were the messages kept, it would be
    // more. The sanitizers keep what was freed.
    EXPECT_TRUE(sanitized || resident_memory() < after_a_tenth * 5 / 4) << after_a_tenth << " " << resident_memory();
    hosts.clear();
    network.reset();
    std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace network
