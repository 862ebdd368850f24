/// Takes cards from the queue for a modem, as many as it has room for: so a slow modem takes few, and one that does not
/// work takes none and puts back what waits for it. Each goes into the outbox of the modem's service under a lease,
/// which holds as long as the server hears that the card is in progress. It has a thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "relay/device_link.h"
#include "relay/modem.h"
#include "relay/orders.h"
#include "relay/queued_card.h"
#include "relay/service_json.h"

namespace fleet {

class card_taker_t {
  public:
    /// `machine`: its name, for people. The modem outlives the object.
    card_taker_t(modem_t& modem, std::string machine);
    ~card_taker_t() { stop(); }
    card_taker_t(const card_taker_t&) = delete;
    card_taker_t& operator=(const card_taker_t&) = delete;

    void start();
    /// From now on it stops.
    void end();
    /// Takes no more, and puts back what waits; waits for what is being sent, some seconds at most. What is left by
    /// then the outbox calls back when its lease is over. Idempotent.
    void stop();
    /// The service and the server have both answered once.
    bool is_ready() const { return is_ready_; }

  private:
    using clock_t = std::chrono::steady_clock;

    /// What a service has told of itself.
    struct status_t {
        std::string number;
        std::string network;
        std::string hindrance;  // why no card can go; empty when they can
        std::string doubt;      // why the last datagram did not; empty when it did
        uint64_t queue = 0;     // cards of its outbox that are not sent
        uint64_t room = 0;      // cards that it takes more
    };

    void run();
    void beat();
    bool look_at_service();  // false: it does not answer
    bool look_at_queue();
    bool report_progress(std::vector<lease_t>& leases);
    void renew(const std::vector<lease_t>& leases);
    void look_at_waiting(const std::vector<lease_t>& leases);
    void look_at(const lease_t& lease);
    void put_back_when_hindered();
    void put_back();
    void show_presence();

    void take();
    int wanted() const;
    void take_from(std::optional<nats::pull_t>& queue, int most, std::chrono::milliseconds wait);
    /// One that goes to the outbox.
    struct taken_t {
        uint64_t id = 0;
        queued_card_t card;
        std::string token;
        std::shared_ptr<const nats::message_t> message;
    };
    void hand_in(std::vector<nats::message_t> messages);
    std::optional<taken_t> look_at(nats::message_t message);
    void answered(const taken_t& taken, const client::answer_t<std::string>& answer);
    client::answer_t<bool> was_sent(uint64_t card, uint64_t digest);
    void refuse(const nats::message_t& message, uint64_t card, const std::string& why);
    void handed_in(uint64_t card, const json_t& message);
    std::chrono::milliseconds beat_time() const;
    std::chrono::seconds lease_time() const;

    modem_t& modem_;
    const std::string machine_;
    const int64_t since_;  // seconds since 1970
    device_link_t link_;
    orders_t orders_;
    std::optional<nats::pull_t> any_;
    std::optional<nats::pull_t> own_;  // what only this phone may send
    std::string own_number_;           // that `own_` is for
    clock_t::time_point next_pulls_;   // when both are made anew
    std::chrono::milliseconds ack_wait_{30'000};
    status_t status_;
    bool is_usable_ = false;  // the service answers, and its modem works
    double datagrams_a_card_ = 2;
    clock_t::time_point next_beat_{};
    clock_t::time_point next_own_{};    // look at the phone's own cards
    clock_t::time_point next_trial_{};  // of a modem that was refused its last datagram
    clock_t::time_point rest_until_{};  // nothing is taken before
    std::optional<clock_t::time_point> hindered_since_;
    size_t looked_at_ = 0;  // of the leases, how many in the round
    presence_line_t service_;
    presence_line_t server_;
    std::atomic<bool> is_ready_ = false;
    std::atomic<bool> is_stopping_ = false;
    std::thread thread_;
};

}  // namespace fleet
