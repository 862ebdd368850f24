/// The message memories of a modem: which of them is used for what, and the commands that are about them alone, 3GPP TS
/// 27.005. Not thread-safe.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "network/at_server.h"
#include "network/faults.h"
#include "network/message_places.h"
#include "network/text_mode.h"

namespace network {

/// What a name of +CPMS stands for: one memory, or both of them one behind the other. A view.
class named_places_t {
  public:
    explicit named_places_t(std::vector<message_places_t*> parts) : parts_(std::move(parts)) {}

    size_t count() const;
    size_t used() const;
    /// The lowest free place, or none when all are taken.
    std::optional<size_t> put(const stored_message_t& message);
    /// Null when the place is empty or there is none of that number.
    stored_message_t* at(size_t index);
    bool exists(size_t index) const { return index >= 1 && index <= count(); }
    void erase(size_t index);

  private:
    /// The part that has the place, whose number in it `index` becomes.
    message_places_t* part_of(size_t& index) const;

    std::vector<message_places_t*> parts_;
};

class message_memories_t {
  public:
    /// The references outlive the object; the number is the service centre's, which is told of messages.
    message_memories_t(faults_t& faults, const text_mode_t& text_mode, const std::string& service_centre_number)
        : faults_(faults), text_mode_(text_mode), service_centre_number_(service_centre_number) {}

    at_result_t cpms(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgl(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgr(const at_command_t& command, at_lines_t& lines);
    at_result_t cmgd(const at_command_t& command, at_lines_t& lines);
    /// What AT+CMGW ends with.
    at_result_t write(const stored_message_t& message, at_lines_t& lines);

    /// A message that is to be sent, or was; null when there is none at the index.
    stored_message_t* to_send(size_t index);

    struct place_t {
        std::string_view memory;
        size_t index;
    };
    /// Where it lies now; none when the memory for it is full.
    std::optional<place_t> store_received(const air_message_t& message);

    /// Of each memory: its name, used places, and all.
    struct level_t {
        std::string_view name;
        size_t used;
        size_t places;
    };
    std::vector<level_t> levels() const {
        return {{"ME", equipment_.used(), equipment_.count()}, {"SM", card_.used(), card_.count()}};
    }

    void reset_settings();
    /// Of each memory; what is stored beyond them is lost.
    void set_places(size_t count);
    void set_default_places();
    /// None when they are the default ones.
    std::optional<size_t> unusual_places() const;

  private:
    /// What +CPMS chooses a memory for.
    enum use_t : size_t { for_reading, for_writing, for_receiving, uses };

    static constexpr size_t equipment_places = 100;
    static constexpr size_t card_places = 20;

    named_places_t places_named(std::string_view name);
    named_places_t places(use_t use) { return places_named(memory_for_[use]); }
    bool choose(const at_parameters_t& names);

    std::optional<unsigned> wanted_status(const at_parameters_t& parameters) const;
    at_result_t invalid_parameter() const;
    void show(stored_message_t& message, std::optional<size_t> index, at_lines_t& lines) const;

    faults_t& faults_;
    const text_mode_t& text_mode_;
    const std::string& service_centre_number_;
    message_places_t equipment_{equipment_places};     // "ME"
    message_places_t card_{card_places};               // "SM"; "MT" is both
    std::array<std::string_view, uses> memory_for_{};  // their names
};

}  // namespace network
