/// The service manager that started this process, systemd as a rule: what it is told, by the protocol of sd_notify(3).
/// Without one nothing happens. Spoken here, since the library that speaks it too loads five others, for one datagram.
#pragma once

#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>

#include "base/descriptor.h"

class service_manager_t {
  public:
    /// Takes the manager's variables out of the environment, so that the programs that this process starts do not speak
    /// for it. Before there are other threads.
    service_manager_t();

    [[nodiscard]] bool is_there() const { return socket_.get() >= 0; }
    /// How often it wants "WATCHDOG=1" once the service is ready; none when it does not.
    [[nodiscard]] std::optional<std::chrono::microseconds> watchdog() const { return watchdog_; }

    /// Assignments, one a line: "READY=1", "STATUS=…". Never waits: what it has no room for is lost. From any thread.
    void tell(std::string_view assignments) const;

  private:
    sockaddr_un address_{};
    socklen_t length_ = 0;
    base::descriptor_t socket_;
    std::optional<std::chrono::microseconds> watchdog_;
};
