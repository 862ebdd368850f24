#include "network/tcp_port.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

#include "base/clock.h"
#include "base/text.h"
#include "network/system_limits.h"

namespace network {

namespace {

constexpr uint64_t retry_after = 1'000;  // milliseconds
constexpr int backlog = 4;

bool is_address(const std::string& host) {
    std::array<uint8_t, sizeof(in6_addr)> octets;
    return inet_pton(AF_INET, host.c_str(), octets.data()) == 1 ||
           inet_pton(AF_INET6, host.c_str(), octets.data()) == 1;
}

void set(int socket, int level, int option, int value) {
    setsockopt(socket, level, option, &value, sizeof value);
}

/// In the form of the socket interface.
struct socket_address_t {
    sockaddr_storage storage{};
    socklen_t size = sizeof(sockaddr_storage);

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }  // NOLINT: how the socket interface takes them
};

std::optional<socket_address_t> resolve(const tcp_address_t& address) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found) != 0) {
        return std::nullopt;
    }
    socket_address_t resolved;
    resolved.size = found->ai_addrlen;
    std::copy_n(reinterpret_cast<const char*>(found->ai_addr), found->ai_addrlen,  // NOLINT: as above
                reinterpret_cast<char*>(&resolved.storage));                       // NOLINT
    freeaddrinfo(found);
    return resolved;
}

/// The port that the system has chosen.
uint16_t port_of(int socket) {
    socket_address_t bound;
    std::array<char, NI_MAXSERV> service{};
    getsockname(socket, bound.get(), &bound.size);
    getnameinfo(bound.get(), bound.size, nullptr, 0, service.data(), service.size(), NI_NUMERICSERV);
    uint16_t port = 0;
    std::from_chars(service.data(), service.data() + service.size(), port);
    return port;
}

/// Words are few octets, which must not wait for more; and a host that does not answer for a minute has gone.
void set_options(int connection) {
    set(connection, IPPROTO_TCP, TCP_NODELAY, 1);
    set(connection, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(connection, IPPROTO_TCP, TCP_KEEPIDLE, 30);
    set(connection, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set(connection, IPPROTO_TCP, TCP_KEEPCNT, 3);
}

bool would_block() {
    return errno == EAGAIN || errno == EINTR;
}

}  // namespace

std::optional<tcp_address_t> tcp_address_named(std::string_view text) {
    tcp_address_t address;
    const size_t colon = text.rfind(':');
    if (colon != std::string_view::npos) {
        std::string_view host = text.substr(0, colon);
        const bool in_brackets = host.starts_with('[') && host.ends_with(']');
        if (in_brackets != (host.find(':') != std::string_view::npos)) {
            return std::nullopt;
        }
        address.host = in_brackets ? host.substr(1, host.size() - 2) : host;
    }
    const std::string_view port = text.substr(colon == std::string_view::npos ? 0 : colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    const bool good = error == std::errc() && end == port.data() + port.size() && is_address(address.host);
    return good ? std::optional(address) : std::nullopt;
}

std::string to_text(const tcp_address_t& address) {
    return address.host.find(':') == std::string::npos ? fmt::format("{}:{}", address.host, address.port)
                                                       : fmt::format("[{}]:{}", address.host, address.port);
}

std::unique_ptr<tcp_port_t> tcp_port_t::open(tcp_address_t address, const wait_set_t& waits, phone_t* phone,
                                             std::string* error) {
    std::optional<socket_address_t> where = resolve(address);
    if (!where) {
        *error = fmt::format("cannot listen at {}: that is no address", to_text(address));
        return nullptr;
    }
    base::descriptor_t listener(
        socket(where->storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    // The port is there again at once after a hang-up, whatever connections it had.
    set(listener.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    if (!listener || bind(listener.get(), where->get(), where->size) != 0 || listen(listener.get(), backlog) != 0) {
        *error = fmt::format("cannot listen at {}: {}", to_text(address), limit_text(errno));
        return nullptr;
    }
    address.port = port_of(listener.get());
    return std::unique_ptr<tcp_port_t>(new tcp_port_t(std::move(address), std::move(listener), waits, phone));
}

tcp_port_t::tcp_port_t(tcp_address_t address, base::descriptor_t listener, const wait_set_t& waits, phone_t* phone)
    : address_(std::move(address)),
      waits_(waits),
      phone_(phone),
      listener_(std::move(listener)),
      listener_waited_(waits, listener_.get(), phone) {}

bool tcp_port_t::accept() {
    if (connected() || retry_at_.value_or(0) > base::tick64()) {
        return false;
    }
    retry_at_.reset();
    connection_ = base::descriptor_t(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connected()) {
        const bool gone = would_block() || errno == ECONNABORTED;
        retry_at_ = gone ? std::nullopt : std::optional(base::tick64() + retry_after);
        return false;
    }
    set_options(connection_.get());
    connection_waited_ = std::make_unique<waited_t>(waits_, connection_.get(), phone_);
    at_end_ = false;
    broken_ = false;
    return true;
}

void tcp_port_t::read(std::string& into) {
    std::array<char, 4096> octets;
    const ssize_t count = recv(connection_.get(), octets.data(), octets.size(), 0);
    if (count > 0) {
        into.append(octets.data(), static_cast<size_t>(count));
    }
    at_end_ = at_end_ || count == 0;
    broken_ = broken_ || (count < 0 && !would_block());
}

void tcp_port_t::write(std::string& from) {
    const ssize_t count = from.empty() ? 0 : send(connection_.get(), from.data(), from.size(), MSG_NOSIGNAL);
    if (count > 0) {
        from.erase(0, static_cast<size_t>(count));
    }
    broken_ = broken_ || (count < 0 && !would_block());
}

/// Whether a connection is broken one can see without reading from it: what is read would have to be kept.
bool tcp_port_t::host_has_gone(size_t unread) const {
    pollfd connection = {connection_.get(), 0, 0};
    return broken_ || (at_end_ && unread == 0) || poll(&connection, 1, 0) > 0;
}

void tcp_port_t::disconnect() {
    connection_waited_.reset();
    connection_ = {};
}

void tcp_port_t::wait(bool for_words, bool for_room) {
    listener_waited_.want(connected() || retry_at_ ? 0U : EPOLLIN);
    if (connected()) {
        connection_waited_->want((for_words && !at_end_ ? EPOLLIN : 0U) | (for_room ? EPOLLOUT : 0U));
    }
}

}  // namespace network
