// The device as its clients meet it: raw control requests, packets that are none, clients that die, wrong usage.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/hex.h"
#include "client/client.h"
#include "com/zpd/zpd_ioctl.h"
#include "device/device_socket.h"
#include "tests/system/phones.h"

namespace {

using nlohmann::json;

class control : public testing::Test {
  protected:
    struct running_t {
        folder_t folder;
        network_t network{folder};
        phone_t phone{folder, "alice", network.modem(alice)};
    };

    static void SetUpTestSuite() {
        running = std::make_unique<running_t>();
        running->phone.start();
        ASSERT_TRUE(running->phone.ready()) << running->phone.serve().errors();
    }

    static void TearDownTestSuite() { running.reset(); }

    static phone_t& phone() { return running->phone; }

    static std::unique_ptr<running_t> running;
};

std::unique_ptr<control::running_t> control::running;

json object(bool result, uint32_t error, const std::string& output) {
    return {{"result", result}, {"error", error}, {"returned", output.size() / 2}, {"output", output}};
}

TEST_F(control, requests_print_one_json_object) {
    const std::tuple<std::string, arguments_t, int, json> cases[] = {
        {"33554436", {"--out", "4"}, 0, object(true, 0, "02000000")},
        {"0x02000004", {"--out", "3"}, 1, object(false, 122, "")},
        {"0xFFFFFFFF", {"--in", "0102", "--out", "65536"}, 1, object(false, 1, "")},
        {"0x02000030", {"--in", "01ff"}, 0, object(true, 0, "FF")},
        // A card "A", is_utf8, 8-bit reference: it takes one datagram.
        {"0x02000018", {"--in", "01000000410100"}, 0, object(true, 0, "01000000")},
    };
    for (const auto& [code, arguments, status, reply] : cases) {
        const outcome_t outcome = phone().ioctl(code, arguments);
        EXPECT_EQ(outcome.status, status) << code << outcome.output << outcome.errors;
        EXPECT_EQ(json::parse(outcome.output, nullptr, false), reply) << code << outcome.errors;
    }
}

/// A connection that speaks whatever octets it likes.
class raw_connection_t {
  public:
    explicit raw_connection_t(const std::string& path) : socket_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        connected_ = connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~raw_connection_t() { close(socket_); }
    raw_connection_t(const raw_connection_t&) = delete;
    raw_connection_t& operator=(const raw_connection_t&) = delete;

    bool send(const std::string& packet) const {
        return connected_ &&
               ::send(socket_, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
    }
    std::string receive() const {
        std::string packet(device::reply_header + device::max_output, '\0');
        packet.resize(static_cast<size_t>(std::max<ssize_t>(0, recv(socket_, packet.data(), packet.size(), 0))));
        return packet;
    }

  private:
    int socket_;
    bool connected_ = false;
};

std::string u32(uint32_t value) {
    std::string octets;
    for (int shift = 0; shift < 32; shift += 8) {
        octets += static_cast<char>(value >> shift);
    }
    return octets;
}

const std::string version_request = u32(ZPD_IOCTL_VERSION) + u32(4);
const std::string version_reply = u32(1) + u32(0) + u32(4) + u32(ZPD_INTERFACE_VERSION);
const std::string malformed_reply = u32(0) + u32(87) + u32(0);

TEST_F(control, a_malformed_packet_is_answered_and_the_connection_goes_on) {
    const raw_connection_t connection(phone().device());
    const std::vector<std::string> malformed{
        "x",
        u32(ZPD_IOCTL_VERSION) + "abc",
        version_request + std::string(device::max_input + 1, 'x'),
        u32(ZPD_IOCTL_VERSION) + u32(device::max_output + 1),
        u32(ZPD_IOCTL_VERSION) + u32(0xFFFFFFFF),
    };
    for (const std::string& packet : malformed) {
        ASSERT_TRUE(connection.send(packet)) << packet.size();
        EXPECT_EQ(connection.receive(), malformed_reply) << packet.size();
    }
    ASSERT_TRUE(connection.send(version_request));
    EXPECT_EQ(connection.receive(), version_reply);
}

TEST_F(control, clients_that_die_in_mid_request_harm_nobody) {
    const raw_connection_t witness(phone().device());
    const std::string card(30000, 'x');
    const std::string count = u32(ZPD_IOCTL_COUNT_DATAGRAMS) + u32(4) + u32(30000) + card + std::string(2, '\0');
    for (int i = 0; i < 200; ++i) {
        const raw_connection_t dying(phone().device());
        // The service closes the door on a crowd, before the first packet or between the two; it must not fall over.
        if (dying.send(count)) {
            (void)dying.send(version_request);
        }
    }
    ASSERT_TRUE(witness.send(version_request));
    EXPECT_EQ(witness.receive(), version_reply);
    EXPECT_TRUE(eventually([] { return phone().zpd({"version"}).status == 0; }));
}

TEST_F(control, wrong_usage_ends_with_status_2_and_help_with_0) {
    // Those that end with a space, or have two, hold an empty argument.
    for (const std::string line : {"",
                                   "frobnicate",
                                   "send",
                                   "send card.vcf",
                                   "serve",
                                   "network",
                                   "doctor",
                                   "ioctl nonsense",
                                   "ioctl 0x02000004 --in 0",
                                   "ioctl 0x02000004 --in zz",
                                   "ioctl 0x02000004 --out 65537",
                                   "ioctl 0x100000000",
                                   "status x",
                                   "activation maybe",
                                   "inbox eat",
                                   "help frobnicate",
                                   "serve --modem /dev/null --home ",
                                   "version --device ",
                                   "doctor --modem ",
                                   "serve --modem /dev/null --pin-file ",
                                   "serve --modem /dev/null --announcement ",
                                   "serve --modem /dev/null --announcement abc",
                                   "serve --modem /dev/null --log-size 10",
                                   "serve --modem /dev/null --log-size -3",
                                   "serve --modem /dev/null --log-size 5x",
                                   "log --level 8",
                                   "serve --modem /dev/null --set bo\x1b[31mgus",
                                   "network --dir /dev/null --phones +1:foo",
                                   "network --dir /dev/null --phones 1,+1",
                                   "network --dir /dev/null --phones 1 --fault bogus",
                                   "network --dir /dev/null --phones 1 --fault 1:bogus",
                                   "network --dir /dev/null --phones 1 --fault 1:refuse=x",
                                   "fault --dir /dev/null 1 bo\x1b[31mgus",
                                   "fault --dir /dev/null 1 silent=maybe",
                                   "fault 1",
                                   "fault --dir /dev/null 1 silent --json"}) {
        arguments_t arguments;
        for (size_t begin = 0, end = 0; !line.empty() && end != std::string::npos; begin = end + 1) {
            end = line.find(' ', begin);
            arguments.push_back(line.substr(begin, end - begin));
        }
        const outcome_t outcome = zpd(arguments);
        EXPECT_EQ(outcome.status, 2) << line << outcome.output;
        EXPECT_NE(outcome.errors, "") << line;
        EXPECT_EQ(outcome.errors.find('\x1b'), std::string::npos) << line;
    }
    EXPECT_EQ(zpd({"frobnicate"}).errors, "zpd: there is no command 'frobnicate'; see zpd --help\n");
    EXPECT_EQ(zpd({"help"}).output, zpd({"--help"}).output);
    EXPECT_EQ(zpd({"--version"}).status, 0);
    for (const char* command :
         {"demo", "network", "serve", "doctor", "send", "count", "list", "status", "close", "inbox", "activation",
          "apps", "launch", "settings", "contacts-setting", "log", "ioctl", "version"}) {
        EXPECT_EQ(zpd({command, "--help"}).status, 0) << command;
    }
}

TEST(control_result, that_cannot_be_written_is_a_failure) {
    const int status = std::system(ZPD_BINARY " version >/dev/full 2>/dev/null");
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
