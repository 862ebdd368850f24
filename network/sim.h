/// The SIM in an emulated modem: its PIN, and the time after power-on in which it answers nothing. Not thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "network/result_codes.h"

namespace network {

class sim_t {
  public:
    /// Asks for this PIN from now on, and again after each power-on; an empty one is no PIN. All tries are given anew.
    void set_pin(std::string pin);
    /// From now on, and after each power-on and each right PIN, it is busy for so many milliseconds of
    /// base::tick64; the message service then answers with `code`.
    void set_busy(uint64_t milliseconds, unsigned code);
    struct busy_t {
        uint64_t milliseconds = 0;
        unsigned code = 0;
    };
    /// As it was set.
    const busy_t& busy_at_start() const { return busy_at_start_; }
    void power_on();

    /// Without its PIN the modem gets no network.
    bool locked() const { return locked_; }
    /// +CPIN?, 3GPP TS 27.007 8.3
    std::string_view state() const;
    /// After each power-on, +CLCK.
    bool asks_for_pin() const { return !pin_.empty(); }
    const std::string& pin() const { return pin_; }
    unsigned tries_left() const { return tries_left_; }
    /// How often a host has entered a PIN so far: the right one where it was wanted, another, or any unasked.
    struct entries_t {
        unsigned right = 0;
        unsigned wrong = 0;
        unsigned unasked = 0;
    };
    const entries_t& entries() const { return entries_; }
    at_result_t enter(std::string_view pin);

    /// What a command fails with at this moment: one on the SIM, or one of the message service.
    std::optional<at_result_t> refusal() const;
    std::optional<at_result_t> message_refusal() const;

  private:
    static constexpr unsigned all_tries = 3;

    bool busy() const;

    std::string pin_;
    bool locked_ = false;
    unsigned tries_left_ = all_tries;
    entries_t entries_;
    busy_t busy_at_start_;
    uint64_t busy_until_ = 0;
};

}  // namespace network
