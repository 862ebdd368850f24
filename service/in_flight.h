/// The messages of the outbox that are with the driver: which datagrams of them have gone, and which messages are given
/// up. The radio tells, and asks before it takes a datagram; the feeder looks. Thread-safe; nothing here waits for the
/// driver or the disk.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "radio/observer.h"
#include "service/outbox_file.h"

/// Why a message is given up: what becomes of it when the driver has let go of it.
struct ending_t {
    enum class kind_t : uint8_t {
        cancelled,
        set_aside,  // for good, for the reason
        refused,    // the same, and its number is to be held back
        later,      // it waits again, with its number
    };
    kind_t kind = kind_t::cancelled;
    reason_t reason{};
};

class in_flight_t {
  public:
    /// A message as the feeder sees it.
    struct state_t {
        int64_t id = 0;
        std::string number;
        std::optional<uint32_t> driver_message;
        int64_t sent = 0;      // different datagrams that were confirmed
        int64_t refusals = 0;  // since it was handed in
        int64_t expires = 0;
        bool complete = false;  // all were
        bool is_new = false;    // more were confirmed since the last look
        std::optional<ending_t> ending;
        bool settled = false;  // the outbox knows what became of it; the driver still has datagrams that go no more
    };

    /// `wake` is called when there is something for the feeder to do, on any thread.
    explicit in_flight_t(std::function<void()> wake) : wake_(std::move(wake)) {}

    /// Before the driver is given the message: its datagrams may go out at once. `number` of the driver is told later.
    void begin(const outbox_message_t& message);
    void name(int64_t id, uint32_t driver_message);
    void settle(int64_t id);
    void end(int64_t id);

    /// It goes no more. False when it is not here, or complete.
    bool give_up(int64_t id, const ending_t& ending);

    bool has(int64_t id);
    /// All of them; what is new counts as seen.
    std::vector<state_t> look();
    /// Datagrams that are not confirmed, of messages that are not given up.
    int64_t outstanding() const;
    /// Whether one with the same octets to the same number is given up: their datagrams could not be told apart.
    bool gives_up_equal(const outbox_message_t& message) const;
    /// Seconds a datagram takes, as of late; none before two were sent.
    std::optional<double> pace() const;

    // For radio::observer_t.
    void submitted(const radio::outgoing_t& datagram, const radio::submission_outcome_t& outcome);
    bool is_given_up(const radio::outgoing_t& datagram) const;

  private:
    struct entry_t {
        state_t state;
        std::string octets;
        uint8_t width = 0;  // octets of the reference; 0 for a message of one datagram
        std::vector<bool> confirmed;
        int64_t at_once = 0;  // refusals that the driver was left to try again, since a datagram was confirmed

        /// Datagrams that are not confirmed.
        int64_t left() const { return static_cast<int64_t>(confirmed.size()) - state.sent; }
    };
    void give_up(entry_t& entry, const ending_t& ending);
    static bool is_of(const entry_t& entry, const radio::outgoing_t& datagram);
    entry_t* find(const radio::outgoing_t& datagram);
    entry_t* find(int64_t id);
    bool confirm(entry_t& entry, const radio::outgoing_t& datagram);
    void note_pace();

    const std::function<void()> wake_;
    mutable std::mutex mutex_;  // guards all below
    std::list<entry_t> entries_;
    int64_t outstanding_ = 0;
    size_t given_up_ = 0;
    uint64_t last_sent_ = 0;  // tick64
    double pace_ = 0;         // seconds; 0 when it is not known
};

/// What is to be done about a message that was refused so, for the last of so many times, so many of them tried again
/// at once. None: the driver tries again.
std::optional<ending_t> ending_after(const radio::submission_outcome_t& outcome, int64_t refusals, int64_t at_once);
