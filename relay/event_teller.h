/// Tells the fleet what a modem's service tells: what becomes of the queue's cards, which are acknowledged then or
/// given back, the cards that came, and how the modem fares. At least once, in the service's order; where it was is
/// kept in a file, so that what happens while the server or the relay is away is told later. It has a thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <thread>

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
    bool tell(const json_t& event);
    bool tell_result(const json_t& event, uint64_t card);
    bool tell_received(const json_t& event);
    bool tell_modem(json_t event);
    /// Until it is stored, or the modem ends: false.
    bool store(const nats::message_t& message, const std::string& token);
    bool pause(std::chrono::milliseconds time) const;
    std::string token_of_event(const json_t& event) const;

    void read_cursor();
    void check_cursor();
    void write_cursor();

    modem_t& modem_;
    device_link_t link_;
    const std::filesystem::path file_;
    uint64_t cursor_ = 0;  // the last event that was told
    bool is_checked_ = false;
    bool is_write_told_ = false;
    presence_line_t service_;
    presence_line_t server_;
    std::thread thread_;
};

/// What is known of a card of the queue that an outbox has, or is done with: the server is told, and the queue. False
/// when it is not known there yet. `event` as `for_fleet` has it.
bool settle(modem_t& modem, uint64_t card, const std::string& state, uint64_t sent);

}  // namespace fleet
