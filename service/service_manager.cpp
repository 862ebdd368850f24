#include "service/service_manager.h"

#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

/// The variable's value, which nobody finds afterwards.
std::string taken(const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): there are no other threads yet
    std::string text = value != nullptr ? value : "";
    unsetenv(name);  // NOLINT(concurrency-mt-unsafe)
    return text;
}

/// A positive one.
std::optional<int64_t> number_of(std::string_view text) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number > 0 ? std::optional(number)
                                                                                  : std::nullopt;
}

}  // namespace

service_manager_t::service_manager_t() {
    std::string path = taken("NOTIFY_SOCKET");
    const std::string interval = taken("WATCHDOG_USEC");
    const std::string process = taken("WATCHDOG_PID");
    if ((!path.starts_with('/') && !path.starts_with('@')) || path.size() > sizeof address_.sun_path) {
        return;
    }
    if (path.front() == '@') {
        path.front() = '\0';  // a name in the abstract namespace, see unix(7)
    }
    address_.sun_family = AF_UNIX;
    std::memcpy(address_.sun_path, path.data(), path.size());
    length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    socket_ = base::descriptor_t(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (const auto microseconds = number_of(interval);
        microseconds && (process.empty() || number_of(process) == getpid())) {
        watchdog_ = std::chrono::microseconds(*microseconds);
    }
}

void service_manager_t::tell(std::string_view assignments) const {
    if (is_there()) {
        const auto* const address = reinterpret_cast<const sockaddr*>(&address_);  // NOLINT: as the interface takes it
        sendto(socket_.get(), assignments.data(), assignments.size(), MSG_NOSIGNAL | MSG_DONTWAIT, address, length_);
    }
}
