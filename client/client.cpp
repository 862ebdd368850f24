#include "client/client.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "base/text.h"
#include "client/connection.h"
#include "device/device_socket.h"

namespace client {

answer_t<client_t> client_t::connect(std::string_view device) {
    auto connection = client::connect(device, device::system_folder);
    if (!connection) {
        return connection.failure();
    }
    return client_t(std::move(connection->socket), std::move(connection->path));
}

answer_t<reply_t> client_t::ioctl(uint32_t code, octets_view_t input, uint32_t output_capacity) {
    const auto sent = send_request(code, input, output_capacity);
    return sent ? receive_reply() : sent.failure();
}

// A service that refuses a client says why before it closes, whether our packet got there or not.
answer_t<done_t> client_t::send_request(uint32_t code, octets_view_t input, uint32_t output_capacity) const {
    if (send_packet(encode(device::request_t{code, output_capacity, input})) == EMSGSIZE) {
        return failure_t{device::error_malformed, fmt::format("a request of {} octets is too long", input.size()),
                         obstacle_t::request};
    }
    return done_t{};
}

answer_t<reply_t> client_t::receive_reply() const {
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

bool client_t::has_ended() const {
    pollfd state{socket_.get(), POLLIN | POLLRDHUP, 0};
    return poll(&state, 1, 0) > 0;
}

int client_t::send_packet(const octets_t& packet) const {
    ssize_t sent = 0;
    do {
        sent = ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? errno : 0;
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
                             fmt::format("the service at {} did not answer within {} s", path_, answer_limit.count())};
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
