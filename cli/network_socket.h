/// How commands reach a running `zpd network`: the socket DIR/orders, for the user who runs it alone. One connection
/// carries one order and its answer, a packet of JSON each way; network_orders.h tells what they say. An answer has an
/// "error", which is empty when the order was carried out.
#pragma once

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "base/descriptor.h"

class network_socket_t {
  public:
    network_socket_t() = default;
    /// Removes the socket.
    ~network_socket_t();
    network_socket_t(const network_socket_t&) = delete;
    network_socket_t& operator=(const network_socket_t&) = delete;

    /// Takes the place of a socket that is left in the directory, which must be this network's. Returns an empty text,
    /// or what failed.
    [[nodiscard]] std::string open(const std::filesystem::path& directory);
    /// Has `execute` carry out orders, whatever JSON they are, until `end` is readable.
    void serve(const std::function<nlohmann::ordered_json(const nlohmann::json& order)>& execute, int end) const;

  private:
    std::filesystem::path path_;
    base::descriptor_t listener_;
};

/// Has the network in the directory carry out the order. Its answer, which has an "error" whatever came of it.
[[nodiscard]] nlohmann::ordered_json send_order(const std::filesystem::path& directory,
                                                const nlohmann::ordered_json& order);
