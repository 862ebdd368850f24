// The device as its clients meet it: raw control requests, packets that are none, clients that die, wrong usage.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "base/descriptor.h"
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
        umask(022);  // as most users have it
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
const std::string no_access_reply = u32(0) + u32(5) + u32(0);
const std::string busy_reply = u32(0) + u32(170) + u32(0);

sockaddr_un address_of(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

/// A connection that speaks whatever octets it likes.
class raw_connection_t {
  public:
    explicit raw_connection_t(const std::string& path) : socket_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = address_of(path);
        connected_ = connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~raw_connection_t() { close(socket_); }
    raw_connection_t(const raw_connection_t&) = delete;
    raw_connection_t& operator=(const raw_connection_t&) = delete;

    bool send(const std::string& packet = version_request) const {
        return connected_ &&
               ::send(socket_, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
    }
    /// Empty at the end. The kernel tells of that first, where the service has not read all, and gives its words next.
    std::string receive() const {
        std::string packet(device::reply_header + device::max_output, '\0');
        ssize_t length = recv(socket_, packet.data(), packet.size(), 0);
        if (length < 0 && errno == ECONNRESET) {
            length = recv(socket_, packet.data(), packet.size(), 0);
        }
        packet.resize(static_cast<size_t>(std::max<ssize_t>(0, length)));
        return packet;
    }

  private:
    int socket_;
    bool connected_ = false;
};

TEST_F(control, a_malformed_packet_is_answered_and_the_connection_goes_on) {
    const raw_connection_t connection(phone().device());
    const std::vector<std::string> malformed{
        "",
        "x",
        u32(ZPD_IOCTL_VERSION) + "abc",
        version_request + std::string(65537, 'x'),
        u32(ZPD_IOCTL_VERSION) + u32(65537),
        u32(ZPD_IOCTL_VERSION) + u32(0xFFFFFFFF),
    };
    for (const std::string& packet : malformed) {
        ASSERT_TRUE(connection.send(packet)) << packet.size();
        EXPECT_EQ(connection.receive(), malformed_reply) << packet.size();
    }
    ASSERT_TRUE(connection.send(u32(ZPD_IOCTL_VERSION) + u32(65536) + std::string(65536, 'x')));
    EXPECT_EQ(connection.receive(), u32(0) + u32(13) + u32(0)) << "the driver has seen it";
    ASSERT_TRUE(connection.send());
    EXPECT_EQ(connection.receive(), version_reply);
}

/// The service as `zpd version --json` finds it, and that command's exit status.
std::string service_on(const std::string& device) {
    const outcome_t outcome = zpd({"version", "--json", "--device", device});
    EXPECT_EQ(outcome.errors.empty(), outcome.status == 0) << outcome.errors;
    return json::parse(outcome.output, nullptr, false).value("service", "") + ", " + std::to_string(outcome.status);
}

TEST_F(control, sixty_four_clients_are_served_and_the_next_is_told) {
    std::vector<std::unique_ptr<raw_connection_t>> clients;
    const auto one_more = [&] {
        clients.push_back(std::make_unique<raw_connection_t>(phone().device()));
        (void)clients.back()->send();
        return clients.back()->receive();
    };
    const auto fill = [&] {
        return eventually([&] {
            if (one_more() != version_reply) {  // those of other tests are still on their way out
                clients.pop_back();
            }
            return clients.size() == 64;
        });
    };
    ASSERT_TRUE(fill());
    EXPECT_EQ(one_more(), busy_reply);
    EXPECT_EQ(service_on(phone().device()), "busy, 1");
    clients.resize(60);
    EXPECT_TRUE(fill()) << "there is room again";
}

TEST_F(control, version_tells_what_stands_in_the_way) {
    const std::string file = write_file(running->folder / "file", "");
    const std::string stranger = running->folder / "stranger";
    const base::descriptor_t listening(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un address = address_of(stranger);
    ASSERT_EQ(bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(service_on(running->folder / "nobody"), "none, 0");
    EXPECT_EQ(service_on(stranger), "none, 0") << "left by one that was killed";
    EXPECT_EQ(service_on(file), "no answer, 1");
    listen(listening.get(), 1);
    std::jthread hangs_up([&] { const base::descriptor_t client(accept(listening.get(), nullptr, nullptr)); });
    EXPECT_EQ(service_on(stranger), "no answer, 1");
    EXPECT_EQ(service_on(phone().device()), "running, 0");
    EXPECT_THAT(phone().zpd({"version"}).output, testing::HasSubstr("\ndriver interface 2 on device "));
    if (geteuid() != 0) {  // whom no mode stops
        chmod(phone().device().c_str(), 0);
        EXPECT_EQ(service_on(phone().device()), "no access, 1");
        chmod(phone().device().c_str(), 0600);
    }
}

TEST_F(control, nobody_else_gets_at_the_home_or_the_device) {
    constexpr auto others = std::filesystem::perms::group_all | std::filesystem::perms::others_all;
    const auto is_open_to_others = [](const std::filesystem::path& path) {
        return (std::filesystem::status(path).permissions() & others) != std::filesystem::perms::none;
    };
    EXPECT_FALSE(is_open_to_others(phone().device()));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(phone().home())) {
        EXPECT_FALSE(is_open_to_others(entry.path())) << entry.path();
    }
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be another user";
    }
    // Where the modes would let another user in.
    chmod(phone().device().c_str(), 0666);
    chmod(std::filesystem::path(phone().device()).parent_path().c_str(), 0711);
    ASSERT_EQ(seteuid(65534), 0);
    const raw_connection_t connection(phone().device());
    auto client = client::client_t::connect(phone().device());
    ASSERT_EQ(seteuid(0), 0);
    (void)connection.send();
    EXPECT_EQ(connection.receive(), no_access_reply);
    ASSERT_TRUE(client) << client.failure().text;
    EXPECT_EQ(client->version().failure().obstacle, client::obstacle_t::access);
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
    ASSERT_TRUE(witness.send());
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
                                   "doctor --baud 9600",
                                   "ioctl nonsense",
                                   "ioctl 0x02000004 --in 0",
                                   "ioctl 0x02000004 --in zz",
                                   "ioctl 0x02000004 --out 65537",
                                   "ioctl 0x100000000",
                                   "status x",
                                   "activation maybe",
                                   "inbox eat",
                                   "help frobnicate",
                                   "help inbox frobnicate",
                                   "serve --modem /dev/null --home ",
                                   "version --device ",
                                   "doctor --modem ",
                                   "serve --modem /dev/null --pin-file ",
                                   "serve --modem /dev/null --pin-unchecked",
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
    EXPECT_EQ(zpd({"help", "inbox", "export"}).output, zpd({"inbox", "export", "--help"}).output);
    EXPECT_EQ(zpd({"-V"}).output, zpd({"--version"}).output);
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
