#include "network/system_limits.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/text.h"

namespace network {

namespace {

// Both ends of a tty, twice while the next one is opened before the last is gone; a port and its connection.
constexpr size_t descriptors_a_phone = 6;
constexpr size_t descriptors_besides = 64;

size_t descriptors_in_use() {
    std::error_code failure;
    const std::filesystem::directory_iterator all("/proc/self/fd", failure);
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

std::string pseudo_terminals(std::string_view what) {
    std::string number = "?";
    std::ifstream(fmt::format("/proc/sys/kernel/pty/{}", what)) >> number;
    return number;
}

}  // namespace

void raise_descriptor_limit(size_t phones) {
    rlimit limit{};
    const rlim_t wanted = descriptors_in_use() + phones * descriptors_a_phone + descriptors_besides;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < wanted) {
        limit.rlim_cur = std::min(wanted, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

std::string limit_text(int error) {
    rlimit limit{};
    if (error == EMFILE && getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        return fmt::format("{}: this process may have {} (ulimit -Hn), and a phone needs at least two",
                           base::errno_text(error), limit.rlim_cur);
    }
    if (error == ENOSPC) {
        return fmt::format("{} of at most {} are in use (/proc/sys/kernel/pty/max), {} are kept for the host itself",
                           pseudo_terminals("nr"), pseudo_terminals("max"), pseudo_terminals("reserve"));
    }
    return base::errno_text(error);
}

}  // namespace network
