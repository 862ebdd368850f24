/// The message memories of a modem: which of them is used for what, and the commands that are about them alone, 3GPP TS
/// 27.005. Not thread-safe.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "network/at_server.h"
#include "network/faults.h"
#include "network/message_places.h"

namespace network {

class message_memories_t {
  public:
    /// `faults` outlives the object.
    explicit message_memories_t(faults_t& faults) : faults_(faults) {}

    at_result_t cpms(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgl(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgr(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgd(const at_command_t& command, at_lines_t& lines);
    /// What AT+CMGW ends with.
    at_result_t write(const stored_message_t& message, at_lines_t& lines);

    struct place_t {
        std::string_view memory;
        size_t index;
    };
    /// Where it lies now; none when the memory for it is full.
    std::optional<place_t> store_received(const air_message_t& message);

    void reset_settings();
    /// Of each memory; what is stored beyond them is lost.
    void set_places(size_t count);
    void set_default_places();

  private:
    /// What +CPMS chooses a memory for.
    enum use_t : size_t { for_reading, for_writing, for_receiving, uses };

    struct memory_t {
        std::string_view name;
        size_t default_places;
        message_places_t places{default_places};
    };

    message_places_t& places(use_t use) { return memories_[memory_for_[use]].places; }
    std::optional<size_t> memory_named(std::string_view name) const;
    bool choose(const at_parameters_t& names);

    faults_t& faults_;
    std::array<memory_t, 2> memories_{{{"ME", 100}, {"SM", 20}}};
    std::array<size_t, uses> memory_for_{};  // indices into memories_
};

}  // namespace network
