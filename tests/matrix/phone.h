/// A phone in this process: the driver and the radio, on a modem of the emulated network.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "radio/modem_port.h"
#include "tests/driver/home.h"

/// Moves the clock, some hundred times as fast as it is, until the predicate holds; false after some seconds.
bool as_time_passes(const std::function<bool()>& predicate);
/// Moves the clock by so much, in small steps.
void let_time_pass(uint64_t milliseconds);

class phone_t {
  public:
    /// An empty home in which received cards are stored.
    phone_t();
    /// Ends all, if it has begun.
    ~phone_t();
    phone_t(const phone_t&) = delete;
    phone_t& operator=(const phone_t&) = delete;

    /// Attaches the modem, starts the driver, and waits until it knows its network. Returns an empty text, or what
    /// failed.
    [[nodiscard]] std::string start(radio::modem_options_t modem);
    void stop();

    /// Hands a card in; its id.
    uint32_t send(const std::string& card, const std::string& number);
    /// Whether all of its datagrams are sent.
    bool sent(uint32_t id);
    /// The cards stored, in any order.
    std::vector<std::string> stored() const;
    std::string log() const;
    std::filesystem::path home() const { return home_.path(); }

  private:
    std::string request(uint32_t code, const std::string& input);

    home_t home_;
    bool started_ = false;
};
