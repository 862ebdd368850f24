/// A modem's place in a fleet: beside its service, between the service and the server. What it takes from the queue is
/// in card_taker.h, what it tells in event_teller.h.
#pragma once

#include <filesystem>
#include <string>

#include "relay/card_taker.h"
#include "relay/event_teller.h"
#include "relay/modem.h"

namespace fleet {

struct modem_options_t {
    std::string device;           // of the service
    std::string machine;          // its name, for people and in the modem's key
    std::string group;            // of the fleet
    std::filesystem::path state;  // a folder that is there, for what must be known after a start
};

class modem_relay_t {
  public:
    /// Begins: both the service and the server may come later, and go and come again. The server outlives the object.
    modem_relay_t(const modem_options_t& options, nats::connection_t& server, told_t told);
    /// Takes some seconds at most, for what is being sent.
    ~modem_relay_t();
    modem_relay_t(const modem_relay_t&) = delete;
    modem_relay_t& operator=(const modem_relay_t&) = delete;

    /// Takes no more. Returns at once; the destructor waits.
    void end() { taker_.end(); }
    bool is_ready() const { return taker_.is_ready(); }
    const std::string& key() const { return modem_.key; }

  private:
    modem_t modem_;
    event_teller_t teller_;
    card_taker_t taker_;
};

}  // namespace fleet
