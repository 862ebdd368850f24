#include "relay/modem_relay.h"

#include <fmt/format.h>

namespace fleet {

modem_relay_t::modem_relay_t(const modem_options_t& options, nats::connection_t& server, told_t told)
    : modem_{options.device, modem_key(options.machine, options.device), names_t(options.group), server,
             std::move(told)},
      teller_(modem_, options.state / fmt::format("{}.{}", options.group, modem_.key)),
      taker_(modem_, options.machine) {
    teller_.start();
    taker_.start();
}

// What is sent while the taker ends is told still.
modem_relay_t::~modem_relay_t() {
    taker_.stop();
    modem_.is_ending = true;
    teller_.stop();
}

}  // namespace fleet
