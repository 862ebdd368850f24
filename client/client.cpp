#include "client/client.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "base/text.h"
#include "device/device_socket.h"

namespace client {

namespace {

/// Requests take milliseconds; one that waits for the driver's lock behind others a little longer.
constexpr timeval answer_limit{.tv_sec = 30, .tv_usec = 0};

bool is_socket(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 || S_ISSOCK(status.st_mode);
}

failure_t cannot_connect(std::string_view device, const std::string& path, int error) {
    if (error == ECONNREFUSED && !is_socket(path)) {
        error = ENOTSOCK;
    }
    const std::string named = fmt::format("device {} ({})", device, path);
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return {0, fmt::format("no service runs on {}; start one with: zpd serve --modem TTY", named),
                    obstacle_t::no_service};
        case EACCES:
        case EPERM:
            return {
                0,
                fmt::format("you may not use {}; who runs it can let a group in with: zpd serve --group NAME", named),
                obstacle_t::access};
        case EAGAIN:
            return {0, fmt::format("{} takes no more clients now; try again later", named), obstacle_t::busy};
        default:
            return {0, fmt::format("cannot connect to {}: {}", named, base::errno_text(error))};
    }
}

/// A folder in /tmp could have been made by anybody: behind a device's plain name must be the same user, or root.
bool is_trusted(int socket) {
    ucred server{};
    socklen_t length = sizeof server;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &server, &length) == 0 &&
           (server.uid == geteuid() || server.uid == 0);
}

}  // namespace

answer_t<client_t> client_t::connect(std::string_view device) {
    const std::string path = device::path_of(device).native();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return failure_t{0, fmt::format("{} is too long for a socket's path", path)};
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    base::descriptor_t socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    // A service that takes no connections holds up the connect, too, once its queue is full.
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &answer_limit, sizeof answer_limit);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &answer_limit, sizeof answer_limit);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);  // NOLINT: how the socket interface takes it
    if (::connect(socket.get(), generic, sizeof address) != 0) {
        return cannot_connect(device, path, errno);
    }
    if (device.find('/') == std::string_view::npos && !is_trusted(socket.get())) {
        return failure_t{
            0,
            fmt::format("device {} ({}) is served by another user; name its path if you trust that user", device, path),
            obstacle_t::access};
    }
    return client_t(std::move(socket), path);
}

answer_t<reply_t> client_t::ioctl(uint32_t code, octets_view_t input, uint32_t output_capacity) {
    // A service that refuses a client says why before it closes, whether our packet got there or not.
    send_packet(encode(device::request_t{code, output_capacity, input}));
    const auto packet = receive_packet();
    if (!packet) {
        return packet.failure();
    }
    auto reply = device::decode_reply(*packet);
    if (!reply) {
        return failure_t{0, fmt::format("{} answered what is no reply of a ZPD device", path_)};
    }
    return std::move(*reply);
}

bool client_t::send_packet(const octets_t& packet) const {
    ssize_t sent = 0;
    do {
        sent = ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

answer_t<octets_t> client_t::receive_packet() const {
    octets_t packet(device::reply_header + device::max_output);
    ssize_t length = 0;
    bool reset = false;
    for (;;) {
        length = recv(socket_.get(), packet.data(), packet.size(), 0);
        if (length >= 0) {
            break;
        }
        if (errno == EAGAIN) {
            return failure_t{0,
                             fmt::format("the service at {} did not answer within {} s", path_, answer_limit.tv_sec)};
        }
        // The kernel tells of the close first, and gives the packet that came before it next.
        if (errno == ECONNRESET && !reset) {
            reset = true;
        } else if (errno != EINTR) {
            return failure_t{0, fmt::format("the service at {} is gone: {}", path_, base::errno_text(errno))};
        }
    }
    if (length == 0) {
        return failure_t{0, fmt::format("the service at {} ended", path_)};
    }
    packet.resize(static_cast<size_t>(length));
    return packet;
}

}  // namespace client
