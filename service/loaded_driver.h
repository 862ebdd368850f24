/// The driver in this process, from its start to its end, and what the service itself asks of it by its control codes.
/// Calls may come from any thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class loaded_driver_t {
  public:
    /// Starts the driver. One at a time.
    loaded_driver_t();
    ~loaded_driver_t();
    loaded_driver_t(const loaded_driver_t&) = delete;
    loaded_driver_t& operator=(const loaded_driver_t&) = delete;

    DWORD device() const { return device_; }

    /// Empty, or why the device does not answer.
    std::string answers() const;
    /// Has received cards stored from now on. Empty, or why not.
    std::string activate() const;
    /// Whether they are; none when the driver does not say.
    std::optional<bool> is_active() const;
    struct outgoing_t {
        std::string_view octets;
        bool is_utf8;
        bool long_reference;
    };
    /// A control code's answer: a number, or why not.
    struct answer_t {
        uint32_t value = 0;
        uint32_t error = ERROR_SUCCESS;
    };
    /// How many datagrams it takes.
    answer_t count(const outgoing_t& card) const;
    /// The id of the message.
    answer_t send(const outgoing_t& card, std::string_view number) const;
    /// ZPD_STATUS_* of each datagram; none when the driver has no such message any more.
    std::optional<std::vector<uint32_t>> datagrams(uint32_t message) const;
    void close(uint32_t message) const;

    /// The bound of files in the incoming directory, 0 for none; none when the driver does not say.
    std::optional<uint32_t> inbox_size() const;

  private:
    struct reply_t {
        bool done;
        uint32_t error;  // when it was not
        size_t returned;
    };
    reply_t request(DWORD code, std::span<const BYTE> input, std::span<BYTE> output) const;
    bool control(DWORD code, std::span<const BYTE> input, std::span<BYTE> output) const;

    DWORD device_ = 0;
};

/// Stores the activation before the driver starts: what waits on the modem comes as soon as it has, and would be
/// dropped. Empty, or why not.
std::string preset_activation();
