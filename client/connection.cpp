#include "client/connection.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include "base/text.h"
#include "device/device_socket.h"

namespace client {

namespace {

bool is_socket(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 || S_ISSOCK(status.st_mode);
}

/// The group that a folder of devices is open to; empty when it is open to none, or the group has no name.
std::string group_of(const std::filesystem::path& folder) {
    struct stat status {};
    group entry{};
    group* found = nullptr;
    std::array<char, 4096> room{};
    const bool open = stat(folder.c_str(), &status) == 0 && (status.st_mode & (S_IXGRP | S_IXOTH)) == S_IXGRP;
    return open && getgrgid_r(status.st_gid, &entry, room.data(), room.size(), &found) == 0 && found != nullptr
               ? entry.gr_name
               : std::string();
}

failure_t no_access(const std::string& device, const std::string& path) {
    const std::string group = group_of(std::filesystem::path(path).parent_path());
    const std::string advice = group.empty() ? "who runs it can let a group in with: zpd serve --group NAME"
                                             : fmt::format("the members of the group {} may", group);
    return {0, fmt::format("you may not use {}; {}", device, advice), obstacle_t::access};
}

/// A socket without a service was left by one that was killed.
failure_t cannot_connect(const std::string& device, const std::string& path, int error) {
    if (error == ECONNREFUSED && !is_socket(path)) {
        error = ENOTSOCK;
    }
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return {0, fmt::format("no service runs on {}; start one with: zpd serve --modem TTY", device),
                    obstacle_t::no_service};
        case EACCES:
        case EPERM:
            return no_access(device, path);
        case EAGAIN:
            return {0, fmt::format("{} takes no more clients now; try again later", device), obstacle_t::busy};
        default:
            return {0, fmt::format("cannot connect to {}: {}", device, base::errno_text(error))};
    }
}

/// `device` is how a failure names it.
answer_t<connection_t> connect_to(const std::string& device, const std::string& path, bool waits) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return failure_t{0, fmt::format("{} is too long for a socket's path", path)};
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    base::descriptor_t socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | (waits ? 0 : SOCK_NONBLOCK), 0));
    // A service that takes no connections holds up the connect, too, once its queue is full.
    const timeval limit{.tv_sec = answer_limit.count(), .tv_usec = 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);  // NOLINT: how the socket interface takes it
    if (::connect(socket.get(), generic, sizeof address) != 0) {
        return cannot_connect(device, path, errno);
    }
    return connection_t{std::move(socket), path};
}

std::optional<uid_t> server_of(const connection_t& connection) {
    ucred server{};
    socklen_t length = sizeof server;
    if (getsockopt(connection.socket.get(), SOL_SOCKET, SO_PEERCRED, &server, &length) != 0) {
        return std::nullopt;
    }
    return server.uid;
}

/// That the system has no service for this user: none, or one that is open to no group, which is root's alone.
bool is_none_for(const failure_t& failure, const std::filesystem::path& system_folder) {
    return failure.obstacle == obstacle_t::no_service ||
           (failure.obstacle == obstacle_t::access && group_of(system_folder).empty());
}

/// Whom a folder belongs to, if nobody else can put a socket there.
std::optional<uid_t> owner_of(const std::filesystem::path& folder) {
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return std::nullopt;
    }
    return status.st_uid;
}

/// The connection, if `owner` or root serves there.
answer_t<connection_t> trusted(answer_t<connection_t> connection, std::string_view device, std::optional<uid_t> owner) {
    if (!connection) {
        return connection;
    }
    const std::optional<uid_t> server = server_of(*connection);
    if (server && owner && (*server == *owner || *server == 0)) {
        return connection;
    }
    return failure_t{
        0,
        fmt::format("device {} ({}) {}; name its path if you trust who serves it", device, connection->path,
                    owner ? "is served by another user" : "lies in a folder that others can write"),
        obstacle_t::access};
}

}  // namespace

answer_t<connection_t> connect(std::string_view device, const std::filesystem::path& system_folder, bool waits) {
    if (device::is_path(device)) {
        return connect_to(fmt::format("device {}", device), std::string(device), waits);
    }
    const std::string own = device::user_folder() / device;
    const std::string of_system = system_folder / device;
    auto connection = connect_to(fmt::format("device {} ({} or {})", device, own, of_system), own, waits);
    if (connection || connection.failure().obstacle != obstacle_t::no_service) {
        return trusted(std::move(connection), device, geteuid());
    }
    auto system_connection = connect_to(fmt::format("device {} ({})", device, of_system), of_system, waits);
    if (!system_connection && is_none_for(system_connection.failure(), system_folder)) {
        return connection.failure();
    }
    return trusted(std::move(system_connection), device, owner_of(system_folder));
}

}  // namespace client
