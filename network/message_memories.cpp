#include "network/message_memories.h"

#include <fmt/format.h>

#include <algorithm>

#include "network/message_pdu.h"

namespace network {

namespace {

/// A message read for the first time is no longer unread.
void show(stored_message_t& message, const std::string& begin, at_lines_t& lines) {
    lines.push_back(
        fmt::format("{}{},,{}", begin, static_cast<unsigned>(message.status), message.message.octets.size()));
    lines.push_back(pdu_text(message.message));
    if (message.status == message_status_t::unread) {
        message.status = message_status_t::read;
    }
}

std::string used_places(message_places_t& places) {
    std::string used;
    for (size_t index = 1; index <= places.count(); ++index) {
        if (places.at(index) != nullptr) {
            used += fmt::format("{}{}", used.empty() ? "" : ",", index);
        }
    }
    return used;
}

/// <delflag> 1: all that are read; 2 and 3: also those sent, and those still to be sent; 4: all.
void erase_all(message_places_t& places, unsigned flag) {
    constexpr unsigned least_flag[] = {4, 1, 3, 2};  // by status
    for (size_t index = 1; index <= places.count(); ++index) {
        const stored_message_t* message = places.at(index);
        if (message != nullptr && flag >= least_flag[static_cast<size_t>(message->status)]) {
            places.erase(index);
        }
    }
}

}  // namespace

std::optional<size_t> message_memories_t::memory_named(std::string_view name) const {
    const auto memory = std::ranges::find(memories_, name, &memory_t::name);
    return memory == memories_.end() ? std::nullopt : std::optional<size_t>(memory - memories_.begin());
}

/// None or all of them: for reading and deleting, for writing, for what is received. What is left out stays.
bool message_memories_t::choose(const at_parameters_t& names) {
    std::array<size_t, uses> chosen = memory_for_;
    for (size_t use = 0; use < std::max<size_t>(names.count(), 1); ++use) {
        const std::string name = names.text(use).value_or("");
        const std::optional<size_t> memory = memory_named(name);
        if (use >= uses || !memory || !offers(faults_.offers->memories, use, fmt::format("\"{}\"", name))) {
            return false;
        }
        chosen[use] = *memory;
    }
    memory_for_ = chosen;
    return true;
}

/// Preferred message storage, 3.2.2.
at_result_t message_memories_t::cpms(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::set && !choose(at_parameters_t(command.value))) {
        return cms_not_supported;
    }
    std::string line;
    for (const size_t index : memory_for_) {
        const memory_t& memory = memories_[index];
        line += line.empty() ? "+CPMS: " : ",";
        line += command.form == at_form_t::read ? fmt::format("\"{}\",", memory.name) : "";
        line += fmt::format("{},{}", memory.places.used(), memory.places.count());
    }
    lines.push_back(std::move(line));
    return at_ok;
}

/// List messages, 3.4.2. <stat> 4: all.
at_result_t message_memories_t::cmgl(const at_command_t& command, at_lines_t& lines) {
    const std::optional<unsigned> status = at_parameters_t(command.value).number_or(0, 4, 0);
    if (!status || command.form == at_form_t::read) {
        return cms_invalid_pdu_parameter;
    }
    message_places_t& memory = places(for_reading);
    for (size_t index = 1; index <= memory.count(); ++index) {
        stored_message_t* message = memory.at(index);
        if (message != nullptr && (*status == 4 || *status == static_cast<unsigned>(message->status))) {
            show(*message, fmt::format("+CMGL: {},", index), lines);
        }
    }
    return at_ok;
}

/// Read a message, 3.4.3.
at_result_t message_memories_t::cmgr(const at_command_t& command, at_lines_t& lines) {
    const std::optional<unsigned> index = at_parameters_t(command.value).number(0, any_number);
    stored_message_t* message = index ? places(for_reading).at(*index) : nullptr;
    if (message == nullptr) {
        return cms_invalid_index;
    }
    show(*message, "+CMGR: ", lines);
    return at_ok;
}

/// Delete messages, 3.5.4: the one at the index, or with a <delflag> all of a kind.
at_result_t message_memories_t::cmgd(const at_command_t& command, at_lines_t& lines) {
    message_places_t& memory = places(for_reading);
    if (command.form == at_form_t::test) {
        lines.push_back(fmt::format("+CMGD: ({}),(0-4)", used_places(memory)));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> index = parameters.number(0, any_number);
    const std::optional<unsigned> flag = parameters.number_or(1, 4, 0);
    if (!index || !flag || (*flag == 0 && !memory.exists(*index))) {
        return cms_invalid_index;
    }
    if (faults_.failing_deletes > 0) {
        --faults_.failing_deletes;
        return cms_memory_failure;
    }
    if (*flag == 0) {
        memory.erase(*index);
    } else {
        erase_all(memory, *flag);
    }
    return at_ok;
}

/// Write a message to the memory, 4.4.
at_result_t message_memories_t::write(const stored_message_t& message, at_lines_t& lines) {
    const bool received = message.status == message_status_t::unread || message.status == message_status_t::read;
    if (received ? !is_delivery(message.message) : !submission_of(message.message)) {
        return cms_invalid_pdu_parameter;
    }
    const std::optional<size_t> index = places(for_writing).put(message);
    if (!index) {
        return cms_memory_full;
    }
    lines.push_back(fmt::format("+CMGW: {}", *index));
    return at_ok;
}

std::optional<message_memories_t::place_t> message_memories_t::store_received(const air_message_t& message) {
    const std::optional<size_t> index = places(for_receiving).put({message_status_t::unread, message});
    return index ? std::optional(place_t{memories_[memory_for_[for_receiving]].name, *index}) : std::nullopt;
}

void message_memories_t::reset_settings() {
    const bool to_equipment = offers(faults_.offers->memories, for_receiving, "\"ME\"");
    memory_for_.fill(memory_named(to_equipment ? "ME" : "SM").value_or(0));
}

void message_memories_t::set_places(size_t count) {
    for (memory_t& memory : memories_) {
        memory.places.set_count(count);
    }
}

void message_memories_t::set_default_places() {
    for (memory_t& memory : memories_) {
        memory.places.set_count(memory.default_places);
    }
}

}  // namespace network
