#include "cli/fault_socket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "base/text.h"

namespace {

constexpr const char* socket_name = "orders";
constexpr int patience = 5;  // seconds for the other side to say something
constexpr int backlog = 8;

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);  // NOLINT: how the socket interface takes addresses
}

/// The socket in a directory that is open, so that a long path does not matter.
sockaddr_un address_in(const base::descriptor_t& directory) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    fmt::format_to_n(address.sun_path, sizeof address.sun_path - 1, "/proc/self/fd/{}/{}", directory.get(),
                     socket_name);
    return address;
}

base::descriptor_t open_directory(const std::filesystem::path& directory) {
    return base::descriptor_t(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

base::descriptor_t new_socket() {
    base::descriptor_t socket_of(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const timeval limit{patience, 0};
    setsockopt(socket_of.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket_of.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    return socket_of;
}

bool send_packet(int to, const nlohmann::json& value) {
    const std::string text = value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    return send(to, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

/// An object, or a discarded value when nothing of the kind came in time.
nlohmann::json receive_packet(int from) {
    std::array<char, 65536> text;
    const ssize_t length = recv(from, text.data(), text.size(), 0);
    return nlohmann::json::parse(text.data(), text.data() + std::max<ssize_t>(length, 0), nullptr, false);
}

/// The order in a packet, whatever the packet is.
std::optional<fault_order_t> read_order(const nlohmann::json& packet) {
    fault_order_t order;
    if (!packet.is_object() || !packet.contains("phone") || !packet["phone"].is_string() ||
        !packet.contains("faults") || !packet["faults"].is_array()) {
        return std::nullopt;
    }
    order.phone = packet["phone"].get<std::string>();
    for (const nlohmann::json& fault : packet["faults"]) {
        if (!fault.is_string()) {
            return std::nullopt;
        }
        order.faults.push_back(fault.get<std::string>());
    }
    return order;
}

}  // namespace

fault_socket_t::~fault_socket_t() {
    if (listener_) {
        unlink(path_.c_str());
    }
}

std::string fault_socket_t::open(const std::filesystem::path& directory) {
    path_ = directory / socket_name;
    const base::descriptor_t folder = open_directory(directory);
    const sockaddr_un address = address_in(folder);
    base::descriptor_t listener = new_socket();
    unlink(path_.c_str());
    if (fchmod(listener.get(), 0600) != 0 || bind(listener.get(), generic(address), sizeof address) != 0 ||
        listen(listener.get(), backlog) != 0) {
        return fmt::format("cannot take orders at {}: {}", path_.native(), base::errno_text(errno));
    }
    listener_ = std::move(listener);
    return {};
}

void fault_socket_t::serve(const std::function<std::string(const fault_order_t&)>& execute, int end) const {
    std::array<pollfd, 2> waits{pollfd{listener_.get(), POLLIN, 0}, {end, POLLIN, 0}};
    while (waits[1].revents == 0) {
        if (poll(waits.data(), waits.size(), -1) <= 0 || (waits[0].revents & POLLIN) == 0) {
            continue;
        }
        const base::descriptor_t connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const timeval limit{patience, 0};
        setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const std::optional<fault_order_t> order = read_order(receive_packet(connection.get()));
        send_packet(connection.get(), {{"error", order ? execute(*order) : "that is no order"}});
    }
}

std::string send_order(const std::filesystem::path& directory, const fault_order_t& order) {
    const base::descriptor_t folder = open_directory(directory);
    const sockaddr_un address = address_in(folder);
    const base::descriptor_t connection = new_socket();
    if (!folder || connect(connection.get(), generic(address), sizeof address) != 0) {
        const int error = errno;
        return error == ENOENT || error == ECONNREFUSED || error == ENOTDIR
                   ? fmt::format("no network runs in {}; 'zpd network' starts one", directory.native())
                   : fmt::format("cannot reach the network in {}: {}", directory.native(), base::errno_text(error));
    }
    if (!send_packet(connection.get(), {{"phone", order.phone}, {"faults", order.faults}})) {
        return fmt::format("the network in {} takes no orders: {}", directory.native(), base::errno_text(errno));
    }
    const nlohmann::json reply = receive_packet(connection.get());
    const bool understood = reply.is_object() && reply.contains("error") && reply["error"].is_string();
    return understood ? reply["error"].get<std::string>()
                      : fmt::format("the network in {} does not answer", directory.native());
}
