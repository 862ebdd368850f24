#include "tests/client/fake_service.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "device/device_socket.h"

namespace {

base::descriptor_t listen_at(const std::string& path) {
    std::filesystem::remove(path);
    base::descriptor_t socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (bind(socket.get(), generic, sizeof address) != 0 || listen(socket.get(), 8) != 0) {
        std::abort();
    }
    return socket;
}

void send_reply(int socket, const device::reply_t& reply) {
    const auto packet = encode(reply);
    (void)::send(socket, packet.data(), packet.size(), MSG_NOSIGNAL);
}

}  // namespace

device_path_t::device_path_t() : path_("/tmp/zpd-client-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        std::abort();
    }
    path_ += "/device";
}

device_path_t::~device_path_t() {
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(path_).parent_path(), ignored);
}

fake_service_t::fake_service_t(const device_path_t& device, answer_t answer)
    : answer_(std::move(answer)),
      listening_(listen_at(device.path())),
      end_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { run(); }) {}

fake_service_t::~fake_service_t() {
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void fake_service_t::run() {
    for (;;) {
        std::vector<pollfd> ready{{end_.get(), POLLIN, 0}, {listening_.get(), POLLIN, 0}};
        for (const auto& connection : connections_) {
            ready.push_back({connection.get(), POLLIN, 0});
        }
        poll(ready.data(), ready.size(), -1);
        if (ready[0].revents != 0) {
            return;
        }
        size_t index = 2;
        connections_.remove_if([&](const base::descriptor_t& connection) {
            return ready[index++].revents != 0 && !serve(connection.get());
        });
        if (ready[1].revents != 0) {
            accept_one();
        }
    }
}

void fake_service_t::accept_one() {
    base::descriptor_t socket(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    ++count_;
    if (refusal_ != 0) {
        send_reply(socket.get(), refusal(refusal_));
    } else {
        connections_.push_back(std::move(socket));
    }
}

bool fake_service_t::serve(int socket) const {
    device::octets_t packet(device::request_header + device::max_input);
    const ssize_t length = recv(socket, packet.data(), packet.size(), 0);
    packet.resize(length > 0 ? static_cast<size_t>(length) : 0);
    const auto request = device::decode_request(packet);
    const auto reply = request ? answer_(*request) : std::nullopt;
    if (reply) {
        send_reply(socket, *reply);
    }
    return reply.has_value();
}

device::reply_t json(std::string_view text) {
    return {.result = true, .last_error = 0, .output = {text.begin(), text.end()}};
}

device::reply_t refusal(uint32_t error, std::string_view words) {
    return {.result = false, .last_error = error, .output = {words.begin(), words.end()}};
}
