/// A modem of a fleet, as its relay's threads share it.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "base/told_line.h"
#include "relay/fleet_names.h"
#include "relay/lease_table.h"

namespace fleet {

/// Gets the lines for whoever runs the relay. Any thread.
using told_t = std::function<void(base::priority_t, const std::string&)>;

struct modem_t {
    const std::string device;  // of its service
    const std::string key;     // its name in the fleet
    const names_t names;
    nats::connection_t& server;  // outlives it
    const told_t told;

    lease_table_t leases{};
    std::atomic<int64_t> created = 0;  // when the queue's stream was, nanoseconds since 1970; 0 until that is known
    std::atomic<bool> is_ending = false;
};

/// Something that can be lost and come back: each is told once.
class presence_line_t {
  public:
    presence_line_t(const modem_t& modem, std::string what) : modem_(modem), what_(std::move(what)) {}
    void is_there() { tell("", base::priority_t::info); }
    void is_lost(const std::string& why) { tell(why, base::priority_t::warning); }

  private:
    void tell(const std::string& why, base::priority_t priority) {
        if (why.empty() != was_lost_.empty()) {
            modem_.told(priority, why.empty() ? modem_.device + ": " + what_ + " is there again"
                                              : modem_.device + ": " + why + "; it is waited for");
        }
        was_lost_ = why;
    }

    const modem_t& modem_;
    const std::string what_;
    std::string was_lost_;  // why
};

}  // namespace fleet
