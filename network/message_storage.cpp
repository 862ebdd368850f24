// The message memories, 3GPP TS 27.005 3.2.2, 3.4, 3.5.4 and 4.4.
#include <fmt/format.h>

#include <algorithm>

#include "network/message_service.h"

namespace network {

/// Preferred message storage, 3.2.2: for reading and deleting, for writing, for what is received.
at_result_t message_service_t::cpms(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::set) {
        const at_parameters_t parameters(command.value);
        std::array<size_t, 3> chosen = settings_.memory_of;
        for (size_t use = 0; use < std::max<size_t>(parameters.count(), 1); ++use) {
            const std::string name = parameters.text(use).value_or("");
            const std::optional<size_t> memory = memory_named(name);
            if (use >= chosen.size() || !memory ||
                !offers(faults_.offers->memories, use, fmt::format("\"{}\"", name))) {
                return cms_not_supported;
            }
            chosen[use] = *memory;
        }
        settings_.memory_of = chosen;
    }
    std::string line;
    for (const size_t memory : settings_.memory_of) {
        const auto& [name, store] = memories_[memory];
        line += line.empty() ? "+CPMS: " : ",";
        line += command.form == at_form_t::read ? fmt::format("\"{}\",{},{}", name, store.used(), store.places())
                                                : fmt::format("{},{}", store.used(), store.places());
    }
    lines.push_back(std::move(line));
    return at_ok;
}

std::optional<size_t> message_service_t::memory_named(std::string_view name) const {
    for (size_t i = 0; i < memories_.size(); ++i) {
        if (memories_[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

/// List messages, 3.4.2. <stat> 4: all.
at_result_t message_service_t::cmgl(const at_command_t& command, at_lines_t& lines) {
    const std::optional<unsigned> status = at_parameters_t(command.value).number_or(0, 4, 0);
    if (!status || command.form == at_form_t::read) {
        return cms_invalid_pdu_parameter;
    }
    message_store_t& memory = store(0);
    for (size_t index = 1; index <= memory.places(); ++index) {
        stored_message_t* message = memory.at(index);
        if (message != nullptr && (*status == 4 || *status == static_cast<unsigned>(message->status))) {
            show(*message, fmt::format("+CMGL: {},", index), lines);
        }
    }
    return at_ok;
}

/// Read a message, 3.4.3.
at_result_t message_service_t::cmgr(const at_command_t& command, at_lines_t& lines) {
    const std::optional<unsigned> index = at_parameters_t(command.value).number(0, any_number);
    stored_message_t* message = index ? store(0).at(*index) : nullptr;
    if (message == nullptr) {
        return cms_invalid_index;
    }
    show(*message, "+CMGR: ", lines);
    return at_ok;
}

void message_service_t::show(stored_message_t& message, const std::string& begin, at_lines_t& lines) {
    lines.push_back(
        fmt::format("{}{},,{}", begin, static_cast<unsigned>(message.status), message.message.octets.size()));
    lines.push_back(pdu_text(message.message));
    if (message.status == message_status_t::unread) {
        message.status = message_status_t::read;
    }
}

/// Delete messages, 3.5.4. <delflag> 0 the one at the index; 1 all that are read; 2 and 3 also those sent, and those
/// still to be sent; 4 all.
at_result_t message_service_t::cmgd(const at_command_t& command, at_lines_t& lines) {
    message_store_t& memory = store(0);
    if (command.form == at_form_t::test) {
        std::string used;
        for (size_t index = 1; index <= memory.places(); ++index) {
            if (memory.at(index) != nullptr) {
                used += fmt::format("{}{}", used.empty() ? "" : ",", index);
            }
        }
        lines.push_back(fmt::format("+CMGD: ({}),(0-4)", used));
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
    constexpr unsigned least_flag[] = {4, 1, 3, 2};  // by status
    for (size_t i = 1; i <= memory.places(); ++i) {
        const stored_message_t* message = memory.at(i);
        if (message != nullptr &&
            (*flag == 0 ? i == *index : *flag >= least_flag[static_cast<size_t>(message->status)])) {
            memory.erase(i);
        }
    }
    return at_ok;
}

/// Write a message to the memory, 4.4: received ones (<stat> 0 and 1) or such as are to be sent.
at_result_t message_service_t::cmgw(const at_command_t& command, at_lines_t& /*lines*/) {
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> length = parameters.number(0, 255);
    const std::optional<unsigned> status = parameters.number_or(1, 3, 2);
    if (command.form != at_form_t::set || !length || *length == 0 || !status) {
        return cms_invalid_pdu_parameter;
    }
    entry_ = {true, *length, static_cast<message_status_t>(*status)};
    return at_enter_text;
}

at_result_t message_service_t::store_text(const air_message_t& message, at_lines_t& lines) {
    const bool received = entry_.status == message_status_t::unread || entry_.status == message_status_t::read;
    if (received ? !is_delivery(message) : !submission_of(message)) {
        return cms_invalid_pdu_parameter;
    }
    const std::optional<size_t> place = store(1).put({entry_.status, message});
    if (!place) {
        return cms_memory_full;
    }
    lines.push_back(fmt::format("+CMGW: {}", *place));
    return at_ok;
}

void message_service_t::set_default_places() {
    set_places("ME", me_places);
    set_places("SM", sm_places);
}

bool message_service_t::set_places(std::string_view memory, size_t places) {
    const std::optional<size_t> index = memory_named(memory);
    if (index) {
        memories_[*index].store.set_places(places);
    }
    return index.has_value();
}

}  // namespace network
