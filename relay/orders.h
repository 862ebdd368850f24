/// What is asked of whoever has a card of the queue in its outbox: to give it up, or to try it again. Whoever does not
/// have it is silent. Used by one thread.
#pragma once

#include <optional>
#include <string>

#include "relay/device_link.h"
#include "relay/modem.h"
#include "relay/service_json.h"

namespace fleet {

class orders_t {
  public:
    /// Both outlive the object.
    orders_t(modem_t& modem, device_link_t& link) : modem_(modem), link_(link) {}

    /// Those that have come.
    void serve();

  private:
    using subscription_t = std::optional<nats::subscription_t>;
    using carry_out_t = void (orders_t::*)(const nats::message_t& order, uint64_t card, const json_t& request);
    void serve(subscription_t& orders, const char* what, carry_out_t carry_out);
    void cancel(const nats::message_t& order, uint64_t card, const json_t& request);
    void retry(const nats::message_t& order, uint64_t card, const json_t& request);
    void answer(const nats::message_t& order, uint64_t card, const client::answer_t<std::string>& message);
    std::optional<uint64_t> set_aside(uint64_t card);

    modem_t& modem_;
    device_link_t& link_;
    subscription_t cancels_;
    subscription_t retries_;
};

}  // namespace fleet
