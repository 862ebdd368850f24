/// The connection of one thread to the service of a modem, made anew when it is gone.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "client/client.h"

namespace fleet {

class device_link_t {
  public:
    explicit device_link_t(std::string device) : device_(std::move(device)) {}

    /// Makes a request over the connection, a new one if need be.
    template <typename request_t>
    auto ask(const request_t& request) -> decltype(request(std::declval<client::client_t&>())) {
        if (!client_) {
            auto made = client::client_t::connect(device_);
            if (!made) {
                return made.failure();
            }
            client_.emplace(std::move(*made));
        }
        auto answer = request(*client_);
        if (!answer && answer.failure().obstacle != client::obstacle_t::request) {
            client_.reset();
        }
        return answer;
    }

    const std::string& device() const { return device_; }

  private:
    const std::string device_;
    std::optional<client::client_t> client_;
};

}  // namespace fleet
