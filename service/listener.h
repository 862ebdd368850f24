/// The socket that the device is served on: who may connect is settled by its mode, and once more by the credentials of
/// each client (SO_PEERCRED): the user who serves, root, and the members of a group, if one is set.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "service/instance_lock.h"

class listener_t {
  public:
    listener_t() = default;
    /// Removes the socket, if it was opened.
    ~listener_t();
    listener_t(const listener_t&) = delete;
    listener_t& operator=(const listener_t&) = delete;

    /// Makes the socket of a device and listens on it. A socket that nobody serves any more is taken over. `group` may
    /// be empty. Returns an empty text, or why not: served by another process, no such group, an unusable folder.
    [[nodiscard]] std::string open(const std::string& device, const std::string& group);

    int descriptor() const { return descriptor_.get(); }
    /// Whether the process at the other end of this connection may use the device.
    bool may_use(int connection) const;

  private:
    std::string claim(const std::string& device);
    std::string bind_and_listen();

    std::filesystem::path path_;
    std::optional<gid_t> group_;
    instance_lock_t lock_;
    base::descriptor_t descriptor_;
    bool bound_ = false;
};
