/// What a running network is told to do, as JSON, and what it answers besides the "error" that every answer has:
///
///   {"fault": {"phone": "+12025550100", "faults": ["refuse=500x2", "silent"]}}
///   {"show": {"phone": "+12025550100"}}         {"phones": [{"number": "+12025550100", …}]}
///   {"show": {"after": "+12025550100"}}         the same of the phones behind it, as many as an answer holds
///   {"submit": {"from": N, "to": N, "text": "…"}}                   {"datagrams": 1}
///   {"submit": {"from": N, "to": N, "octets": "4245…", "kind": "card"}}      or "push", or "tpdu"
///   {"expect": {"at": N, "card": "4245…"}}      {"arrived": false, "other_count": 9, "others": [{"from": N, …}, …]}
///
/// Octets are hexadecimal digits.
#pragma once

#include <nlohmann/json.hpp>

#include "network/network.h"

class network_orders_t {
  public:
    /// The network outlives the object.
    explicit network_orders_t(network::network_t& network) : network_(network) {}

    /// Carries the order out, whatever JSON it is. Any thread but the network's, one at a time.
    nlohmann::ordered_json execute(const nlohmann::json& order);

  private:
    nlohmann::ordered_json set_faults(const nlohmann::json& order);
    nlohmann::ordered_json show(const nlohmann::json& order);
    nlohmann::ordered_json submit(const nlohmann::json& order);
    nlohmann::ordered_json submit_tpdu(const nlohmann::json& order, const air::octets_t& tpdu);
    nlohmann::ordered_json submit_all(const std::string& from, const network::composed_t& messages);
    nlohmann::ordered_json expect(const nlohmann::json& order);

    network::network_t& network_;
    uint8_t next_reference_ = 0;  // of messages in several parts
};
