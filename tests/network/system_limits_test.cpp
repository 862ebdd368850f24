// What the system gives one process, and a network of many phones.
#include <sys/resource.h>

#include <filesystem>

#include "network/network.h"
#include "tests/network/at_host.h"

namespace network {
namespace {

/// In a process of its own: starts a network of 40 phones under this limit of open files, and tells how it went.
[[noreturn]] void start_with_limit(rlim_t soft, rlim_t hard) {
    const rlimit limit{soft, hard};
    setrlimit(RLIMIT_NOFILE, &limit);
    char folder[] = "/tmp/limits_test_XXXXXX";
    const std::filesystem::path directory = mkdtemp(folder);
    std::vector<std::string> numbers;
    for (unsigned i = 100; i < 140; ++i) {
        numbers.push_back(std::to_string(i));
    }
    std::string error;
    {
        const auto network = network_t::start(directory, numbers, &error);
        if (network) {
            host_t host(network->link("139"));
            host.expect("AT+CNUM\r", "AT+CNUM\r\r\n+CNUM: ,\"139\",129\r\n\r\nOK\r\n");
            error = "all are there";
        }
    }
    fputs(error.c_str(), stderr);
    std::filesystem::remove_all(directory);
    exit(0);
}

TEST(system_limits, descriptors_are_taken_up_to_the_hard_limit_and_then_missed_with_a_reason) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(start_with_limit(40, 4096), testing::ExitedWithCode(0), "all are there");
#if !defined(__SANITIZE_ADDRESS__)  // which looks at memory through descriptors of its own
    EXPECT_EXIT(start_with_limit(40, 60), testing::ExitedWithCode(0),
                "cannot make a pseudo-terminal: Too many open files: this process may have 60 \\(ulimit -Hn\\)");
#endif
}

}  // namespace
}  // namespace network
