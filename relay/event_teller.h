/// Tells the fleet what a modem's service tells: what becomes of the queue's cards, which are acknowledged then or
/// given back, the cards that came, and how the modem fares. At least once, in the service's order; where it was is
/// kept in a file, so that what happens while the server or the relay is away is told later. It has a thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "relay/batch.h"
#include "relay/device_link.h"
#include "relay/modem.h"
#include "relay/service_json.h"

namespace fleet {

class event_teller_t {
  public:
    /// `cursor`: the file, in a folder that is there. All outlive the object.
    event_teller_t(modem_t& modem, std::filesystem::path cursor);
    ~event_teller_t() { stop(); }
    event_teller_t(const event_teller_t&) = delete;
    event_teller_t& operator=(const event_teller_t&) = delete;

    void start();
    /// When the modem is ending. Idempotent.
    void stop();

  private:
    void run();
    void go_on();
    void tell_page(const json_t& events);
    /// What a stream gets of an event, and what it settles.
    struct telling_t {
        uint64_t event = 0;   // its id
        uint64_t card = 0;    // of the queue; 0 for an event about none
        std::string subject;  // empty when it is not told
        std::string data;
        std::string description;  // of a received card
        std::string token;
        std::string kind;
        uint64_t sent = 0;  // datagrams
    };
    std::vector<telling_t> tellings_of(const json_t& events);
    std::optional<telling_t> telling_of(const json_t& event);
    void fill_in_result(const json_t& event, telling_t& telling) const;
    bool fill_in_received(const json_t& event, telling_t& telling);
    void fill_in_modem(json_t event, telling_t& telling) const;
    bool store_together(const std::vector<telling_t>& tellings);
    bool store(const telling_t& telling);
    static void leave_out_overtaken(std::vector<telling_t>& tellings);
    void store_one_by_one(std::vector<telling_t>& tellings);
    void settle_told(telling_t& telling);
    bool pause(std::chrono::milliseconds time) const;
    std::string token_of_event(const json_t& event) const;

    void read_cursor();
    void check_cursor();
    void write_cursor();

    modem_t& modem_;
    device_link_t link_;
    nats::batch_t batch_;
    const std::filesystem::path file_;
    uint64_t cursor_ = 0;  // the last event that was told
    bool is_checked_ = false;
    bool is_write_told_ = false;
    presence_line_t service_;
    presence_line_t server_;
    std::thread thread_;
};

/// What is known of a card of the queue that an outbox has, or is done with: its lease ends, if that is its end, and is
/// returned; the queue is told. `state` is a message's, or an event's kind.
std::optional<lease_t> settle(modem_t& modem, uint64_t card, const std::string& state, uint64_t sent);

}  // namespace fleet
