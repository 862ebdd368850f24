/// Gives the cards of the outbox to the driver, few datagrams ahead of what the modem takes, and tells the outbox what
/// becomes of them. It has a thread; the other calls may come from any.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "service/in_flight.h"
#include "service/loaded_driver.h"
#include "service/outbox.h"

class feeder_t {
  public:
    /// The outbox outlives the object.
    explicit feeder_t(outbox_t& outbox) : outbox_(outbox) {}
    ~feeder_t() { stop(); }
    feeder_t(const feeder_t&) = delete;
    feeder_t& operator=(const feeder_t&) = delete;

    /// Begins. The driver outlives `stop`.
    void start(const loaded_driver_t& driver);
    /// Gives the driver nothing more. What it has stays with it, and in the outbox. Idempotent.
    void stop();
    /// Of what went out after that, when the radio tells nothing more.
    void finish();

    /// There may be something to do.
    void wake();
    /// The outbox was told to cancel a message that was being sent.
    void cancel(int64_t id);

    in_flight_t& in_flight() { return in_flight_; }

  private:
    void run();
    void look();
    bool look_at(const in_flight_t::state_t& message, bool asks);
    [[nodiscard]] bool settle(const in_flight_t::state_t& message, bool sent);
    /// Of a message that the driver was given. `idle`: it still has datagrams of it, and none is on its way.
    enum class fate_t : uint8_t { with_driver, idle, sent, gone };
    [[nodiscard]] fate_t fate_of(const in_flight_t::state_t& message) const;
    void take_cancels();
    void cancel_now(int64_t id);
    void feed();
    bool hand_in(const outbox_message_t& message);
    void wait();

    outbox_t& outbox_;
    const loaded_driver_t* driver_ = nullptr;
    std::set<uint32_t> closed_;     // messages of the driver that are given up, and closed
    bool looks_again_ = false;      // something has to be asked for
    uint64_t next_asking_ = 0;      // tick64, the driver, for what is not given up
    uint64_t next_feeding_ = 0;     // tick64, after a failure
    uint64_t next_forgetting_ = 0;  // tick64

    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::vector<int64_t> cancelled_;
    bool woken_ = false;
    bool stopping_ = false;
    std::thread thread_;

    in_flight_t in_flight_{[this] { wake(); }};
};
