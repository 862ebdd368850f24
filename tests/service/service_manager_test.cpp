// What systemd is told of a service, over a socket of the test's own.
#include "service/service_manager.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <future>

#include "service/life_signs.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// A socket with a name in the abstract namespace, as containers' managers use; the kernel chooses it.
class manager : public testing::Test {
  protected:
    manager() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socklen_t length = sizeof(sa_family_t);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
        length = sizeof address;
        EXPECT_EQ(getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        const std::string name(address.sun_path + 1, length - offsetof(sockaddr_un, sun_path) - 1);
        setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    }
    ~manager() override {
        for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            unsetenv(name);
        }
    }
    /// The next thing that it is told; empty when there is none for so long.
    std::string told(int milliseconds = 5000) {
        pollfd ready{socket_.get(), POLLIN, 0};
        std::array<char, 512> text{};
        return poll(&ready, 1, milliseconds) == 1
                   ? std::string(text.data(), static_cast<size_t>(read(socket_.get(), text.data(), text.size())))
                   : std::string();
    }

    base::descriptor_t socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(manager, hears_of_a_service_from_its_start_to_its_end) {
    setenv("WATCHDOG_USEC", "40000", 1);
    const service_manager_t systemd;
    EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr) << "a program of --on-card could speak for the service";
    std::atomic<int> cards = 0;
    std::atomic<bool> well = true;
    life_signs_t signs(systemd);
    signs.wake();
    signs.begin([&] { return well ? std::optional(std::to_string(cards) + " cards") : std::nullopt; });
    EXPECT_EQ(told(), "READY=1");
    EXPECT_THAT((std::array{told(), told(), told()}), ElementsAre("WATCHDOG=1", "STATUS=0 cards", "WATCHDOG=1"));
    cards = 1;
    signs.wake();
    std::string status;
    while ((status = told()) == "WATCHDOG=1") {
    }
    EXPECT_EQ(status, "STATUS=1 cards");
    well = false;
    while (!told(1500).empty()) {  // signs that were on their way; then none come any more
    }
    signs.end();
    EXPECT_THAT(told(), StartsWith("STOPPING=1\n"));
    EXPECT_THAT(told(0), IsEmpty());
}

TEST_F(manager, gets_no_sign_of_life_from_a_service_that_is_stuck) {
    setenv("WATCHDOG_USEC", "1000", 1);
    const service_manager_t systemd;
    std::promise<void> freed;
    life_signs_t signs(systemd);
    signs.begin([&] {
        freed.get_future().wait();
        return std::nullopt;
    });
    signs.wake();
    EXPECT_EQ(told(), "READY=1");
    EXPECT_THAT(told(200), IsEmpty());
    freed.set_value();
}

TEST_F(manager, asks_a_process_for_what_is_meant_for_it) {
    setenv("WATCHDOG_USEC", "40000", 1);
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(service_manager_t().watchdog(), std::nullopt);
    for (const char* const nowhere : {"", "relative", "/no/such/socket"}) {
        setenv("NOTIFY_SOCKET", nowhere, 1);
        service_manager_t().tell("READY=1");
    }
    EXPECT_THAT(told(0), IsEmpty());
}

}  // namespace
