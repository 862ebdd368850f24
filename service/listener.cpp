#include "service/listener.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/own_file.h"
#include "base/text.h"
#include "device/device_socket.h"

namespace {

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);  // NOLINT: how the socket interface takes addresses
}

std::optional<sockaddr_un> address_of(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        return std::nullopt;
    }
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return address;
}

/// Where this service's devices lie that have no path of their own: in the folder that systemd made for it
/// (RUNTIME_DIRECTORY, of several between colons the first), else where clients look for those of root, or of the user.
std::filesystem::path folder_of_names() {
    const char* variable = std::getenv("RUNTIME_DIRECTORY");  // NOLINT(concurrency-mt-unsafe)
    const std::string_view folders = variable != nullptr ? variable : "";
    if (folders.starts_with('/')) {
        return folders.substr(0, folders.find(':'));
    }
    return geteuid() == 0 ? device::system_folder : device::user_folder();
}

/// Makes the folder of the sockets that have no path of their own. In /tmp anybody could have made it first.
std::string make_runtime_folder(const std::filesystem::path& folder, std::optional<gid_t> group) {
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return fmt::format("cannot make the folder {} for the device's socket: {}", folder.native(),
                           base::errno_text(errno));
    }
    if (const std::string problem = base::own_folder_problem("the device's folder", folder); !problem.empty()) {
        return problem + "; or name another place with --device PATH";
    }
    if (group && (chown(folder.c_str(), static_cast<uid_t>(-1), *group) != 0 || chmod(folder.c_str(), 0710) != 0)) {
        return fmt::format("cannot open {} to the group: {}", folder.native(), base::errno_text(errno));
    }
    return {};
}

std::optional<ucred> peer_of(int connection) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
        return std::nullopt;
    }
    return peer;
}

bool peer_is_in_group(int connection, gid_t group) {
    socklen_t length = 0;
    getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, nullptr, &length);
    std::vector<gid_t> groups(length / sizeof(gid_t));
    if (groups.empty() || getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) {
        return false;
    }
    return std::ranges::find(groups, group) != groups.end();
}

/// An empty text when nobody listens there.
std::string served_already(const std::string& device, const sockaddr_un& address) {
    const base::descriptor_t probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), generic(address), sizeof address) != 0) {
        if (errno == ECONNREFUSED || errno == ENOENT) {
            return {};
        }
        if (errno != EAGAIN) {  // a listener whose queue is full
            return fmt::format("cannot look who serves device {} at {}: {}", device, address.sun_path,
                               base::errno_text(errno));
        }
    }
    const auto server = peer_of(probe.get());
    return instance_lock_t::taken(
        fmt::format("device {} is already served", device),
        server && server->pid > 0 ? fmt::format("process {}", server->pid) : "another process");
}

}  // namespace

listener_t::~listener_t() {
    if (bound_) {
        unlink(path_.c_str());
    }
}

std::string listener_t::open(const std::string& device, const std::string& group) {
    const bool is_path = device::is_path(device);
    path_ = is_path ? std::filesystem::path(device) : folder_of_names() / device;
    if (!group.empty()) {
        const struct group* entry = getgrnam(group.c_str());  // NOLINT(concurrency-mt-unsafe): before any thread
        if (entry == nullptr) {
            return fmt::format("there is no group {}", group);
        }
        group_ = entry->gr_gid;
    }
    if (!is_path) {
        if (std::string error = make_runtime_folder(path_.parent_path(), group_); !error.empty()) {
            return error;
        }
    }
    if (std::string error = claim(device); !error.empty()) {
        return error;
    }
    return bind_and_listen();
}

std::string listener_t::claim(const std::string& device) {
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            return fmt::format("{} exists and is not a socket; name another with --device", path_.native());
        }
        const auto address = address_of(path_);
        if (std::string error = address ? served_already(device, *address) : ""; !error.empty()) {
            return error;
        }
    }
    return lock_.take(path_.native() + ".lock", fmt::format("device {} is already served", device));
}

std::string listener_t::bind_and_listen() {
    const auto address = address_of(path_);
    if (!address) {
        return fmt::format("{} is too long for a socket; name a shorter one with --device", path_.native());
    }
    unlink(path_.c_str());
    descriptor_ = base::descriptor_t(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // The mode must be right from the first moment on, so it comes from the mask.
    const mode_t before = umask(group_ ? 0117 : 0177);
    bound_ = bind(descriptor_.get(), generic(*address), sizeof *address) == 0;
    const int error = errno;
    umask(before);
    if (!bound_) {
        return fmt::format("cannot make the device's socket {}: {}", path_.native(), base::errno_text(error));
    }
    if (group_ && lchown(path_.c_str(), static_cast<uid_t>(-1), *group_) != 0) {
        return fmt::format("cannot give {} to the group: {}", path_.native(), base::errno_text(errno));
    }
    if (listen(descriptor_.get(), SOMAXCONN) != 0) {
        return fmt::format("cannot listen on {}: {}", path_.native(), base::errno_text(errno));
    }
    return {};
}

bool listener_t::may_use(int connection) const {
    const auto peer = peer_of(connection);
    if (!peer) {
        return false;
    }
    if (peer->uid == geteuid() || peer->uid == 0) {
        return true;
    }
    return group_ && (peer->gid == *group_ || peer_is_in_group(connection, *group_));
}
