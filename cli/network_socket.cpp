#include "cli/network_socket.h"

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
constexpr int answer_limit = 5;  // seconds for the other side to say something
constexpr int backlog = 8;
// A card of 255 datagrams in hexadecimal digits, and more; as much as Linux lets a packet have by default.
constexpr size_t longest_packet = 160'000;

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
    const timeval limit{answer_limit, 0};
    setsockopt(socket_of.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket_of.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    return socket_of;
}

bool send_packet(int to, const nlohmann::ordered_json& value) {
    const std::string text = value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    if (text.size() > longest_packet) {
        errno = EMSGSIZE;
        return false;
    }
    return send(to, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

/// A discarded value when nothing of the kind came in time.
nlohmann::ordered_json receive_packet(int from) {
    std::vector<char> text(longest_packet);
    const ssize_t length = recv(from, text.data(), text.size(), 0);
    return nlohmann::ordered_json::parse(text.data(), text.data() + std::max<ssize_t>(length, 0), nullptr, false);
}

}  // namespace

network_socket_t::~network_socket_t() {
    if (listener_) {
        unlink(path_.c_str());
    }
}

std::string network_socket_t::open(const std::filesystem::path& directory) {
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

void network_socket_t::serve(const std::function<nlohmann::ordered_json(const nlohmann::json&)>& execute,
                             int end) const {
    std::array<pollfd, 2> waits{pollfd{listener_.get(), POLLIN, 0}, {end, POLLIN, 0}};
    while (waits[1].revents == 0) {
        if (poll(waits.data(), waits.size(), -1) <= 0 || (waits[0].revents & POLLIN) == 0) {
            continue;
        }
        const base::descriptor_t connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const timeval limit{answer_limit, 0};
        setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        if (!send_packet(connection.get(), execute(receive_packet(connection.get()))) && errno == EMSGSIZE) {
            send_packet(connection.get(), {{"error", "the answer is longer than a packet may be"}});
        }
    }
}

nlohmann::ordered_json send_order(const std::filesystem::path& directory, const nlohmann::ordered_json& order) {
    const auto failed = [&](const std::string& why) { return nlohmann::ordered_json{{"error", why}}; };
    const base::descriptor_t folder = open_directory(directory);
    const sockaddr_un address = address_in(folder);
    const base::descriptor_t connection = new_socket();
    if (!folder || connect(connection.get(), generic(address), sizeof address) != 0) {
        const int error = errno;
        return failed(
            error == ENOENT || error == ECONNREFUSED || error == ENOTDIR
                ? fmt::format("no network runs in {}; 'zpd network' starts one", directory.native())
                : fmt::format("cannot reach the network in {}: {}", directory.native(), base::errno_text(error)));
    }
    if (!send_packet(connection.get(), order)) {
        return failed(
            fmt::format("the network in {} takes no orders: {}", directory.native(), base::errno_text(errno)));
    }
    nlohmann::ordered_json answer = receive_packet(connection.get());
    const bool understood = answer.is_object() && answer.contains("error") && answer["error"].is_string();
    return understood ? answer : failed(fmt::format("the network in {} does not answer", directory.native()));
}
