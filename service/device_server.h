/// Serves the driver's device to client processes: each connection is one open of the device and has a thread of its
/// own, because a request waits for the driver's lock. A client that misbehaves or dies in the middle of a request
/// harms only itself.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <thread>

#include "base/descriptor.h"
#include "device/packet.h"
#include "service/listener.h"

class device_server_t {
  public:
    /// Clients at once; a further one gets one reply with device::error_busy and is closed.
    static constexpr size_t max_connections = 64;

    /// Answers what the driver does not, on any thread; none for a request that the service does not know.
    using service_t = std::function<std::optional<device::reply_t>(const device::request_t&)>;

    /// `device` is the handle that ZPD_Init returned.
    device_server_t(const listener_t& listener, uint32_t device, service_t service);

    /// Serves until `end` is readable.
    void serve(int end);
    /// Closes every connection and waits for its thread. A request that is being worked on is finished first.
    void close();

  private:
    struct connection_t {
        base::descriptor_t socket;
        std::atomic<bool> over = false;
        std::thread thread;
    };

    void accept_one();
    void start(base::descriptor_t socket);
    void run(connection_t& connection);
    [[nodiscard]] device::reply_t answer(DWORD open, const device::request_t& request) const;
    void reap();

    const listener_t& listener_;
    const uint32_t device_;
    const service_t service_;
    base::descriptor_t wake_;  // an eventfd: some connection is over
    std::list<connection_t> connections_;
};
