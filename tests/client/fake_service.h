/// A service that answers as a test wants it, on a device in a folder of its own, with a thread of its own.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/descriptor.h"
#include "device/packet.h"

/// A folder, and the path of a device in it.
class device_path_t {
  public:
    device_path_t();
    ~device_path_t();
    device_path_t(const device_path_t&) = delete;
    device_path_t& operator=(const device_path_t&) = delete;

    const std::string& path() const { return path_; }
    const char* c_str() const { return path_.c_str(); }

  private:
    std::string path_;
};

class fake_service_t {
  public:
    /// On the service's thread; none: the connection is closed instead.
    using answer_t = std::function<std::optional<device::reply_t>(const device::request_t&)>;

    fake_service_t(const device_path_t& device, answer_t answer);
    /// Closes all connections; the socket stays, as that of a service that was killed.
    ~fake_service_t();
    fake_service_t(const fake_service_t&) = delete;
    fake_service_t& operator=(const fake_service_t&) = delete;

    /// Clients from now on get this reply and are closed.
    void turn_away(uint32_t error) { refusal_ = error; }
    int connections() const { return count_; }

  private:
    void run();
    void accept_one();
    bool serve(int socket) const;

    const answer_t answer_;
    const base::descriptor_t listening_;
    const base::descriptor_t end_;
    std::list<base::descriptor_t> connections_;
    std::atomic<uint32_t> refusal_ = 0;
    std::atomic<int> count_ = 0;  // that were ever made
    std::thread thread_;
};

device::reply_t json(std::string_view text);
device::reply_t refusal(uint32_t error, std::string_view words = {});
