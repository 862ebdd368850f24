/// What is known of the modem at a moment: its parts note it where they learn it, for whoever asks the service.
///
/// Times are of base::tick64. Texts of the modem are as it sent them: not fit for a terminal.
#pragma once

#include <ril.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "radio/at_values.h"

namespace radio {

/// A domain that the modem registers with by itself.
struct domain_state_t {
    std::string name;        // "+CREG"
    int status = 0;          // <stat>, 3GPP TS 27.007 7.2
    std::string technology;  // empty where it is not registered

    bool operator==(const domain_state_t&) const = default;
};

/// Why a datagram did not go out.
struct refusal_t {
    std::string text;       // with what to do about it
    uint64_t at = 0;        // the last time
    bool overcome = false;  // a datagram got through since
};

/// The modem has a datagram, and has not told what became of it.
struct owed_result_t {
    int part = 1;        // its place in its message, from 1
    uint64_t until = 0;  // when the result is given up

    /// "the modem owes a result for datagram 3, at most 140 s more"
    [[nodiscard]] std::string words() const;
};

struct modem_state_t {
    std::string tty;
    bool present = false;  // set up, and not lost since
    std::string loss;      // why it is not; goes on after "the modem on TTY"
    std::string maker;     // empty where it tells none, like those below
    std::string model;
    std::string serial_number;
    std::string sim;     // its state in words
    std::string number;  // the subscriber's, digits, "+" before an international one
    std::vector<domain_state_t> domains;
    DWORD system_type = RIL_SYSTEMTYPE_NONE;
    std::optional<int> signal;           // dBm
    std::vector<memory_use_t> memories;  // those that are searched for messages
    std::string receiving_memory;
    std::string delivery;             // how new messages come
    std::vector<refusal_t> refusals;  // each reason once, the latest first
    std::optional<owed_result_t> owed;

    void note_memory(const memory_use_t& use);
    /// So many messages more in a memory; less, when it is negative.
    void count_messages(const std::string& memory, int more);
    void note_refusal(const std::string& text);
    void note_success();
};

/// One for all parts of a modem. Thread-safe.
class modem_board_t {
  public:
    /// `how` must not wait, nor use the board.
    void change(const std::function<void(modem_state_t&)>& how);
    [[nodiscard]] modem_state_t state() const;

  private:
    mutable std::mutex mutex_;  // guards the state
    modem_state_t state_;
};

/// Of the modem that is attached (attach_modem.h); none without one. From any thread, and never waits.
std::optional<modem_state_t> modem_state();
/// Since when, on base::tick64, its thread is away from its wait, doing something; 0 while it waits, or without one.
/// From any thread.
uint64_t modem_busy_since();

}  // namespace radio
