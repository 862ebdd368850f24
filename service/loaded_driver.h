/// The driver in this process, from its start to its end, and what the service itself asks of it by its control codes.
/// Calls may come from any thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

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
    /// The bound of files in the incoming directory, 0 for none; none when the driver does not say.
    std::optional<uint32_t> inbox_size() const;

  private:
    bool control(DWORD code, std::span<BYTE> input, std::span<BYTE> output) const;

    DWORD device_ = 0;
};

/// Stores the activation before the driver starts: what waits on the modem comes as soon as it has, and would be
/// dropped. Empty, or why not.
std::string preset_activation();
