/// The connection of a command that lasts: a service that ends meanwhile is waited for, and asked again.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/end_signals.h"
#include "cli/outbox_message.h"

class outbox_connection_t {
  public:
    /// `lost` is told each time that the service is gone, with its words. The signals outlive the object.
    outbox_connection_t(std::unique_ptr<client::service_t> service, std::string device,
                        const base::end_signals_t& signals, std::function<void(const std::string&)> lost);

    /// Once, however often it has to be tried: the token is made here.
    client::answer_t<outbox_card_t> hand_in(client::handed_in_card_t card);
    /// The request must be one that may be made twice. A failure that is none of the request: the service did not come
    /// back in `patience`, or a signal came.
    client::answer_t<outbox_card_t> ask(
        const std::function<client::answer_t<std::string>(client::service_t&)>& request);

  private:
    std::unique_ptr<client::service_t> service_;
    const std::string device_;
    const base::end_signals_t& signals_;
    const std::function<void(const std::string&)> lost_;
};
