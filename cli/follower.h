/// Follows messages of the outbox until each is over, and shows a person how they fare.
#pragma once

#include <chrono>
#include <optional>

#include "cli/outbox_connection.h"
#include "cli/output.h"

class follower_t {
  public:
    using clock_t = std::chrono::steady_clock;

    enum class end_t {
        over,         // sent, set aside or cancelled: the message tells
        interrupted,  // by a signal
        late,         // the deadline has come
        lost,         // the service does not answer for it any more: `error` tells
        put_off,      // its number is held back
    };

    /// All outlive the object.
    follower_t(outbox_connection_t& connection, progress_t& progress, const base::end_signals_t& signals,
               std::optional<clock_t::time_point> deadline)
        : connection_(connection), progress_(progress), signals_(signals), deadline_(deadline) {}

    /// Brings the message up to date until it is over, or something else ends it; until it is held back, when it
    /// `puts_off` such a one. `label` begins each line.
    end_t follow(outbox_card_t& message, const std::string& label, bool puts_off = false);
    /// Brings the message up to date once, if the service answers.
    void look(outbox_card_t& message);
    const std::string& error() const { return error_; }

  private:
    void show(const outbox_card_t& message, const std::string& label);

    outbox_connection_t& connection_;
    progress_t& progress_;
    const base::end_signals_t& signals_;
    const std::optional<clock_t::time_point> deadline_;
    clock_t::time_point moved_at_{};
    std::string shown_;  // the last line, but for numbers
    clock_t::time_point shown_at_{};
    std::string error_;
};
