// The capture of what is on the air, block by block as pcapng has them; scripts/witnesses/tshark has tshark read one.
#include "network/trace.h"

#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <memory>

#include "base/octets.h"
#include "tests/network/host.h"

namespace network {
namespace {

namespace fs = std::filesystem;

/// Each block as its type and its body in hexadecimal, times left out; the lengths at both ends must agree.
std::vector<std::string> blocks_of(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const base::octets_t octets{std::istreambuf_iterator<char>(stream), {}};
    std::vector<std::string> blocks;
    for (size_t at = 0; at < octets.size();) {
        base::reader_t head(base::octets_view_t(octets).subspan(at));
        const uint32_t type = head.u32().value_or(0);
        const uint32_t length = head.u32().value_or(0);
        if (length < 12 || length % 4 != 0 || at + length > octets.size()) {
            blocks.emplace_back("torn");
            break;
        }
        base::octets_t body(octets.begin() + static_cast<long>(at) + 8,
                            octets.begin() + static_cast<long>(at + length - 4));
        EXPECT_EQ(base::reader_t(base::octets_view_t(octets).subspan(at + length - 4)).u32(), length);
        if (type == 6) {
            body.erase(body.begin() + 4, body.begin() + 12);
        }
        blocks.push_back(base::to_hex(base::writer_t().u32(type).octets()) + " " + base::to_hex(body));
        at += length;
    }
    return blocks;
}

const std::string section = "0A0D0D0A 4D3C2B1A01000000FFFFFFFFFFFFFFFF040003007A70640000000000";

std::string interface_of(const std::string& phone, const std::string& network) {
    const auto option = [](const std::string& code, const std::string& text) {
        base::octets_t value(text.begin(), text.end());
        value.resize((text.size() + 3) / 4 * 4);
        return code + base::to_hex(base::octets_t{static_cast<uint8_t>(text.size()), 0}) + base::to_hex(value);
    };
    return "01000000 FC00000000000000" + option("0200", phone) + option("0300", network) + "0900010009000000" +
           "00000000";
}

using trace_test = network_test;

TEST_F(trace_test, has_an_interface_a_phone_and_each_message_on_its_own) {
    const fs::path file = directory_ / "air.pcapng";
    EXPECT_NE(network_->trace(directory_ / "no" / "folder", {}), "");
    ASSERT_EQ(network_->trace(file, {}), "");
    EXPECT_EQ(blocks_of(file), std::vector{section});
    const auto from = host(alice);
    submit(*from, submit_to(bob, {0xAA}));
    EXPECT_EQ(from->read_until("OK\r\n"), sent(0));
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 1));
    const std::string later = "+491700000003";
    ASSERT_TRUE(network_->attach(later + ":umts", &error_)) << error_;
    submit(*host(later), submit_to("1", {0xBB}));
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 1));
    set_fault(alice, "technology=lte");
    submit(*from, submit_to("1", {0xCC}));
    EXPECT_TRUE(wait_for(&statistics_t::waiting, 2));

    const std::vector<std::string> blocks = blocks_of(file);
    ASSERT_EQ(blocks.size(), 9U);
    const std::string dissector = "000C000867736D5F736D7300";  // "gsm_sms"
    const std::string from_phone = dissector + "002300040000000100000000";
    const std::string to_phone = dissector + "002300040000000000000000";
    const std::string outbound = "020004000200000000000000";
    const std::string inbound = "020004000100000000000000";
    const std::string tpdu = "01000C91947100000020000401AA";
    EXPECT_EQ(blocks[1], interface_of(alice, "gsm"));
    EXPECT_EQ(blocks[2], "06000000 000000002600000026000000" + from_phone + tpdu + "0000" + outbound);
    EXPECT_EQ(blocks[3], interface_of(bob, "gsm"));
    EXPECT_TRUE(blocks[4].starts_with("06000000 010000002C0000002C000000" + to_phone + "040C91947100000010"))
        << blocks[4];
    EXPECT_TRUE(blocks[4].ends_with("AA" + inbound)) << blocks[4];
    EXPECT_EQ(blocks[5], interface_of(later, "umts")) << "it came later";
    EXPECT_EQ(blocks[6].substr(0, 17), "06000000 02000000");
    EXPECT_EQ(blocks[7], interface_of(alice, "lte"));
    EXPECT_EQ(blocks[8].substr(0, 17), "06000000 03000000");
}

TEST_F(trace_test, ends_with_one_warning_and_a_whole_file_when_the_disk_is_full) {
    const fs::path file = directory_ / "air.pcapng";
    std::vector<std::string> told;
    EXPECT_EQ(network_->trace("/dev/full", {}), "cannot write the trace /dev/full: No space left on device");
    ASSERT_EQ(network_->trace(file, [&](const std::string& what) { told.push_back(what); }), "");
    const auto from = host(alice);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    rlimit small = usual;
    small.rlim_cur = 200;  // room for the first message, and a part of the second's interface
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    for (unsigned i = 0; i < 3; ++i) {
        submit(*from, submit_to(bob, {0xAA}));
        EXPECT_EQ(from->read_until("OK\r\n"), sent(i)) << "the network goes on";
    }
    EXPECT_TRUE(wait_for(&statistics_t::delivered, 3));
    setrlimit(RLIMIT_FSIZE, &usual);
    const std::vector<std::string> blocks = blocks_of(file);
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_EQ(blocks[1], interface_of(alice, "gsm"));
    EXPECT_EQ(told, std::vector{"cannot write the trace " + file.native() + ": File too large"});
}

}  // namespace
}  // namespace network
