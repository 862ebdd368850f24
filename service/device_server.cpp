#include "service/device_server.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "com/zpd/main.h"
#include "device/device_socket.h"
#include "device/service_requests.h"

namespace {

using device::octets_t;
using device::octets_view_t;
using device::reply_t;

/// One control request, on the driver.
reply_t control(DWORD open, const device::request_t& request) {
    octets_t input(request.input.begin(), request.input.end());
    reply_t reply;
    reply.output.resize(request.output_capacity);
    DWORD returned = 0;
    reply.result = ZPD_IOControl(open, request.code, input.data(), static_cast<DWORD>(input.size()),
                                 reply.output.data(), request.output_capacity, &returned) != FALSE;
    reply.last_error = reply.result ? ERROR_SUCCESS : GetLastError();
    reply.output.resize(returned);
    return reply;
}

reply_t refusal(uint32_t error) {
    return {.result = false, .last_error = error, .output = {}};
}

bool send_reply(int socket, const reply_t& reply) {
    const octets_t packet = encode(reply);
    ssize_t sent = 0;
    do {
        sent = send(socket, packet.data(), packet.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

/// The end of a connection reads like an empty packet, which a client may send as well.
bool is_closed(int socket) {
    pollfd state{socket, POLLRDHUP, 0};
    return poll(&state, 1, 0) != 0;
}

/// Receives a packet into `buffer`, which is longer than any that is allowed, so that an oversized one shows. None at
/// the end of the connection.
std::optional<octets_view_t> receive(int socket, octets_t& buffer) {
    ssize_t length = 0;
    do {
        length = recv(socket, buffer.data(), buffer.size(), 0);
    } while (length < 0 && errno == EINTR);
    if (length < 0 || (length == 0 && is_closed(socket))) {
        return std::nullopt;
    }
    return octets_view_t(buffer).first(static_cast<size_t>(length));
}

}  // namespace

device_server_t::device_server_t(const listener_t& listener, uint32_t device, service_t service)
    : listener_(listener),
      device_(device),
      service_(std::move(service)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void device_server_t::serve(int end) {
    std::array<pollfd, 3> ready{pollfd{end, POLLIN, 0}, {wake_.get(), POLLIN, 0}, {listener_.descriptor(), POLLIN, 0}};
    for (;;) {
        if (poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR) {
            break;
        }
        if (ready[0].revents != 0) {
            break;
        }
        reap();
        if (ready[2].revents != 0) {
            accept_one();
        }
    }
}

void device_server_t::close() {
    for (connection_t& connection : connections_) {
        shutdown(connection.socket.get(), SHUT_RDWR);
        connection.thread.join();
    }
    connections_.clear();
}

void device_server_t::accept_one() {
    base::descriptor_t socket(accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket) {
        // Out of descriptors or memory: nothing tells when there are some again, and the client waits in the queue.
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            poll(nullptr, 0, 100);
        }
        return;
    }
    if (!listener_.may_use(socket.get())) {
        send_reply(socket.get(), refusal(ERROR_ACCESS_DENIED));
    } else if (connections_.size() >= max_connections) {
        send_reply(socket.get(), refusal(device::error_busy));
    } else {
        start(std::move(socket));
    }
}

void device_server_t::start(base::descriptor_t socket) {
    connection_t& connection = connections_.emplace_back();
    connection.socket = std::move(socket);
    try {
        connection.thread = std::thread([this, &connection] { run(connection); });
    } catch (const std::system_error&) {
        send_reply(connection.socket.get(), refusal(device::error_busy));
        connections_.pop_back();
    }
}

void device_server_t::run(connection_t& connection) {
    const int socket = connection.socket.get();
    const DWORD open = ZPD_Open(device_, 0, 0);
    octets_t buffer(device::request_header + device::max_input + 1);
    while (const auto packet = receive(socket, buffer)) {
        const auto request = device::decode_request(*packet);
        if (!send_reply(socket, request ? answer(open, *request) : refusal(device::error_malformed))) {
            break;
        }
    }
    ZPD_Close(open);
    connection.over = true;
    eventfd_write(wake_.get(), 1);
}

reply_t device_server_t::answer(DWORD open, const device::request_t& request) const {
    if ((request.code & device::service_request_mask) != device::service_request_type) {
        return control(open, request);
    }
    std::optional<reply_t> reply = service_(request);
    if (!reply) {
        return refusal(ERROR_INVALID_FUNCTION);
    }
    return reply->output.size() <= request.output_capacity ? *std::move(reply) : refusal(ERROR_INSUFFICIENT_BUFFER);
}

void device_server_t::reap() {
    eventfd_t count = 0;
    eventfd_read(wake_.get(), &count);
    connections_.remove_if([](connection_t& connection) {
        if (!connection.over) {
            return false;
        }
        connection.thread.join();
        return true;
    });
}
