/// How `zpd fault` reaches a running `zpd network`: the socket DIR/orders, for the user who runs it alone. One
/// connection carries one order, a packet of JSON each way:
///
///   {"phone": "+12025550100", "faults": ["refuse=500x2", "silent"]}
///   {"error": ""}
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/descriptor.h"

struct fault_order_t {
    std::string phone;
    std::vector<std::string> faults;
};

class fault_socket_t {
  public:
    fault_socket_t() = default;
    /// Removes the socket.
    ~fault_socket_t();
    fault_socket_t(const fault_socket_t&) = delete;
    fault_socket_t& operator=(const fault_socket_t&) = delete;

    /// Takes the place of a socket that is left in the directory, which must be this network's. Returns an empty text,
    /// or what failed.
    [[nodiscard]] std::string open(const std::filesystem::path& directory);
    /// Has `execute` carry orders out until `end` is readable; it returns an empty text, or what is wrong.
    void serve(const std::function<std::string(const fault_order_t&)>& execute, int end) const;

  private:
    std::filesystem::path path_;
    base::descriptor_t listener_;
};

/// Has the network in the directory carry out the order. Returns an empty text, or what failed.
[[nodiscard]] std::string send_order(const std::filesystem::path& directory, const fault_order_t& order);
