// An hour in the life of a phone, made up from a seed: it sends and receives cards while its modem does what modems
// do, one fault or several at a time. When the faults are over and some time has passed, each card that was sent has
// arrived once, at the phone and at its peer, which is a host at the AT commands of its modem; and no PIN was entered
// but when it was asked for. ZPD_DIALOGUES says how many hours, ZPD_SEED which is the first.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "base/clock.h"
#include "tests/matrix/cards.h"
#include "tests/matrix/phone.h"

namespace {

const std::string& ours = network::alice;
const std::string theirs = "+4917000000020";

constexpr uint64_t second = 1'000;
constexpr uint64_t minute = 60 * second;

/// How a modem is for the whole hour.
const std::vector<std::vector<std::string>> manners = {
    {"offers=full", "offers=stored", "offers=direct", "offers=one", "offers=short", "offers=none"},
    {"pdu=usual", "pdu=spare-bits", "pdu=even-address", "pdu=padded", "pdu=length-over", "pdu=length-under"},
    {"storage=5", "storage=20", "storage=100"},
    {"pin=off", "pin=4711"},
    {"echo=as-asked", "echo=always", "echo=off"},
    {"prompt=usual", "prompt=bare", "prompt=no-space"},
    {"errors=numeric", "errors=verbose"},
    {"text-mode=off", "text-mode=off", "text-mode=on"},
    {"memory-full=off", "memory-full"},
};

/// What happens to it, and what ends that, if it does not end by itself.
struct trouble_t {
    std::string begin;
    std::string end = {};
};
const std::vector<trouble_t> troubles = {
    {"restart=2000:RDY"},
    {"restart=10000"},
    {"restart=4000:^SYSSTART"},
    {"hang-up=2000"},
    {"hang-up=40000"},
    {"silent", "silent=off"},
    {"silent=opened"},
    {"late-answers=1500", "late-answers=0"},
    {"late-answers=12000", "late-answers=0"},
    {"late-prompt=3000", "late-prompt=0"},
    {"late-prompt=25000", "late-prompt=0"},
    {"late-results=4000", "late-results=0"},
    {"late-results=150000", "late-results=0"},
    {"lose-results=1"},
    {"lose-results=2"},
    {"refuse=38x3"},
    {"refuse=42"},
    {"fail-deletes=2"},
    {"sim-busy=20000", "sim-busy=0"},
    {"registration=searching", "registration=home"},
    {"technology=lte", "technology=gsm"},
    {"duplicate", "duplicate=off"},
    {"reorder=3", "reorder=0"},
    {"delay=30000", "delay=0"},
    {"both-ways", "both-ways=off"},
    {"unannounced", "unannounced=off"},
    {"wrong-index", "wrong-index=off"},
    {"chatter", "chatter=off"},
    {"single-octets", "single-octets=off"},
};

unsigned from_environment(const char* name, unsigned otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

/// A card by the line that has its number.
std::vector<std::string> names(const std::vector<std::string>& octets) {
    std::vector<std::string> names;
    for (const std::string& text : octets) {
        const size_t at = text.find("N:Number ");
        names.push_back(at == std::string::npos ? "no beginning" : text.substr(at, text.find('\r', at) - at));
    }
    return names;
}

class dialogue : public network::network_test, public testing::WithParamInterface<unsigned> {
  protected:
    void SetUp() override {
        testing::internal::CaptureStderr();
        ASSERT_TRUE(network_->attach(theirs, &error_)) << error_;
        set_fault(theirs, "storage=1000");
        set_fault(theirs, "delivery-gap=0");
        peer_ = host(theirs);
        for (const std::vector<std::string>& choices : manners) {
            order(one_of(choices));
        }
        const std::filesystem::path pin_file = phone_.home() / "pin";
        std::ofstream(pin_file) << "4711\n";
        std::filesystem::permissions(pin_file, std::filesystem::perms::owner_read);
        ASSERT_NO_FATAL_FAILURE(phone_.start({.tty = network_->link(ours), .pin_file = pin_file}));
        began_at_ = base::tick64();
    }
    void TearDown() override {
        phone_.stop();
        const std::string warnings = testing::internal::GetCapturedStderr();
        if (HasFailure()) {
            std::cerr << fmt::format("repeat it with ZPD_SEED={} ZPD_DIALOGUES=1\n{}\n{}", GetParam(),
                                     fmt::join(history_, "\n"), warnings);
        }
    }

    unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
    template <class T>
    const T& one_of(const std::vector<T>& choices) {
        return choices[below(static_cast<unsigned>(choices.size()))];
    }
    void tell(const std::string& what) {
        const uint64_t at = began_at_ == 0 ? 0 : base::tick64() - began_at_;
        history_.push_back(fmt::format("{:7.1f} s  {}", static_cast<double>(at) / second, what));
    }
    void order(const std::string& fault) {
        tell(fault);
        set_fault(ours, fault);
    }

    void send_card() {
        sent_.push_back(card_of(1 + below(4), ++serial_));
        ids_.push_back(phone_.send(sent_.back(), theirs));
        tell(fmt::format("sends card {} of {}", serial_, datagrams_of(sent_.back())));
    }
    /// The datagrams of a card come some seconds apart.
    void receive_card() {
        coming_.push_back(card_of(1 + below(4), ++serial_));
        const std::string& card = coming_.back();
        tell(fmt::format("card {} of {} is sent to it", serial_, datagrams_of(card)));
        for (size_t i = 0; i < datagrams_of(card); ++i) {
            network::submit(*peer_, datagram_of(card, i, ours, serial_));
            EXPECT_NE(peer_->read_until("OK\r\n"), "");
            let_time_pass(below(4) * second);
        }
    }
    void get_into_trouble() {
        const trouble_t& trouble = one_of(troubles);
        order(trouble.begin);
        power_cycles_ += trouble.begin.starts_with("restart") || trouble.begin.starts_with("hang-up") ? 1 : 0;
        if (!trouble.end.empty()) {
            ends_.emplace(base::tick64() + (1 + below(180)) * second, trouble.end);
        }
    }
    void end_troubles(uint64_t until) {
        while (!ends_.empty() && ends_.begin()->first <= until) {
            const uint64_t now = base::tick64();
            let_time_pass(std::max(ends_.begin()->first, now) - now);
            order(ends_.begin()->second);
            ends_.erase(ends_.begin());
        }
    }
    void live_for(uint64_t milliseconds) {
        const uint64_t end = base::tick64() + milliseconds;
        while (base::tick64() < end) {
            const unsigned kind = below(4);
            kind == 0 ? send_card() : kind == 1 ? receive_card() : get_into_trouble();
            const uint64_t next = base::tick64() + below(90) * second;
            end_troubles(next);
            const uint64_t now = base::tick64();
            let_time_pass(std::max(next, now) - now);
        }
        end_troubles(UINT64_MAX);
        tell("the troubles are over");
    }

    bool all_sent() {
        return std::ranges::all_of(ids_, [this](uint32_t id) { return phone_.sent(id); });
    }
    /// The bodies of all datagrams at the peer.
    std::vector<std::string> arrived() {
        peer_->send("AT+CMGL=4\r");
        const std::string reply = peer_->read_until("OK\r\n");
        std::vector<std::string> bodies;
        for (size_t at = 0; (at = reply.find("+CMGL:", at)) != std::string::npos; ++at) {
            const air::deliver_t datagram = network::delivered(reply.substr(at));
            const auto parts = air::split_user_data(datagram.user_data).value();
            bodies.emplace_back(parts.body.begin(), parts.body.end());
        }
        return bodies;
    }

    /// Which datagram it is of those sent.
    std::string where(const std::string& body) {
        for (const std::string& card : sent_) {
            for (size_t i = 0; i < datagrams_of(card); ++i) {
                if (body_of(card, i) == body) {
                    return fmt::format("{}, datagram {}", names({card}).front(), i + 1);
                }
            }
        }
        return "no card";
    }

    std::mt19937 random_{GetParam()};
    phone_t phone_;
    std::unique_ptr<network::host_t> peer_;
    uint64_t began_at_ = 0;
    size_t serial_ = 0;
    std::vector<std::string> sent_;    // cards, and in the same order
    std::vector<uint32_t> ids_;        // what the driver calls them
    std::vector<std::string> coming_;  // cards
    std::multimap<uint64_t, std::string> ends_;
    unsigned power_cycles_ = 1;
    std::vector<std::string> history_;
};

TEST_P(dialogue, each_card_arrives_once_and_no_pin_is_wasted) {
    live_for(60 * minute);
    EXPECT_TRUE(as_time_passes([this] { return all_sent(); })) << "the driver tells all as sent";
    EXPECT_TRUE(as_time_passes([this] { return phone_.stored().size() >= coming_.size(); })) << "all are stored";
    let_time_pass(10 * minute);
    const std::vector<std::string> stored = phone_.stored();
    EXPECT_THAT(names(stored), testing::UnorderedElementsAreArray(names(coming_)));
    EXPECT_TRUE(std::ranges::is_permutation(stored, coming_)) << "octet for octet";

    std::map<std::string, int> missing;  // how often; less than nothing: too often
    for (const std::string& card : sent_) {
        for (size_t i = 0; i < datagrams_of(card); ++i) {
            ++missing[body_of(card, i)];
        }
    }
    for (const std::string& body : arrived()) {
        --missing[body];
    }
    for (const auto& [body, times] : missing) {
        EXPECT_EQ(times, 0) << "missing of " << where(body);
    }

    const network::sim_t::entries_t entries = network_->pin_entries(ours);
    EXPECT_LE(entries.right, power_cycles_);
    EXPECT_EQ(entries.wrong + entries.unasked, 0U);
}

INSTANTIATE_TEST_SUITE_P(seed, dialogue,
                         testing::Range(from_environment("ZPD_SEED", 1),
                                        from_environment("ZPD_SEED", 1) + from_environment("ZPD_DIALOGUES", 3)));

}  // namespace
