/// What the radio tells, made into what the outbox and people want to know: which datagrams went, which cards came or
/// were dropped, and how the modem fares. It is there before the modem is attached, and until it is detached.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "radio/observer.h"
#include "service/in_flight.h"
#include "service/inbox.h"
#include "service/loaded_driver.h"
#include "service/outbox.h"

class news_t : public radio::observer_t {
  public:
    /// All outlive the object.
    news_t(outbox_t& outbox, in_flight_t& in_flight, inbox_t& inbox)
        : outbox_(outbox), in_flight_(in_flight), inbox_(inbox) {}

    /// From now on changes of the modem are told, and the reasons for dropped cards asked of this driver, until `end`.
    /// Tells of the cards that were stored when nobody could.
    void begin(const loaded_driver_t& driver);
    void end() { driver_ = nullptr; }
    /// Who is told, after the event, that a card was stored. Before the modem is attached.
    void on_stored(std::function<void()> told) { on_stored_ = std::move(told); }

    void submitted(const radio::outgoing_t& datagram, const radio::submission_outcome_t& outcome) override;
    bool is_given_up(const radio::outgoing_t& datagram) override;
    void stored(const std::string& sender, const std::filesystem::path& file) override;
    void dropped(const std::string& sender) override;
    void modem_changed(const radio::modem_state_t& state) override;

  private:
    void tell_cards();
    std::string why_dropped() const;

    outbox_t& outbox_;
    in_flight_t& in_flight_;
    inbox_t& inbox_;
    std::function<void()> on_stored_;
    std::atomic<const loaded_driver_t*> driver_ = nullptr;
    bool begun_ = false;                        // guarded, like all below
    std::mutex cards_;                          // one after the other
    std::mutex mutex_;                          // guards what follows, and begun_
    std::optional<radio::modem_state_t> last_;  // of the modem
};
