#include "network/message_memories.h"

#include <fmt/format.h>

#include <algorithm>

#include "network/message_pdu.h"

namespace network {

namespace {

std::string used_places(named_places_t places) {
    std::string used;
    for (size_t index = 1; index <= places.count(); ++index) {
        if (places.at(index) != nullptr) {
            used += fmt::format("{}{}", used.empty() ? "" : ",", index);
        }
    }
    return used;
}

/// <delflag> 1: all that are read; 2 and 3: also those sent, and those still to be sent; 4: all.
void erase_all(named_places_t places, unsigned flag) {
    constexpr unsigned least_flag[] = {4, 1, 3, 2};  // by status
    for (size_t index = 1; index <= places.count(); ++index) {
        const stored_message_t* message = places.at(index);
        if (message != nullptr && flag >= least_flag[static_cast<size_t>(message->status)]) {
            places.erase(index);
        }
    }
}

}  // namespace

size_t named_places_t::count() const {
    size_t count = 0;
    for (const message_places_t* part : parts_) {
        count += part->count();
    }
    return count;
}

size_t named_places_t::used() const {
    size_t used = 0;
    for (const message_places_t* part : parts_) {
        used += part->used();
    }
    return used;
}

std::optional<size_t> named_places_t::put(const stored_message_t& message) {
    size_t before = 0;
    for (message_places_t* part : parts_) {
        if (const std::optional<size_t> index = part->put(message)) {
            return before + *index;
        }
        before += part->count();
    }
    return std::nullopt;
}

message_places_t* named_places_t::part_of(size_t& index) const {
    for (message_places_t* part : parts_) {
        if (part->exists(index)) {
            return part;
        }
        index -= std::min(index, part->count());
    }
    return nullptr;
}

stored_message_t* named_places_t::at(size_t index) {
    message_places_t* part = part_of(index);
    return part == nullptr ? nullptr : part->at(index);
}

void named_places_t::erase(size_t index) {
    if (message_places_t* part = part_of(index)) {
        part->erase(index);
    }
}

named_places_t message_memories_t::places_named(std::string_view name) {
    return name == "ME"   ? named_places_t({&equipment_})
           : name == "SM" ? named_places_t({&card_})
                          : named_places_t({&equipment_, &card_});
}

/// None or all of them: for reading and deleting, for writing, for what is received. What is left out stays.
bool message_memories_t::choose(const at_parameters_t& names) {
    constexpr std::string_view known[] = {"ME", "SM", "MT"};
    std::array<std::string_view, uses> chosen = memory_for_;
    for (size_t use = 0; use < std::max<size_t>(names.count(), 1); ++use) {
        const std::string name = names.text(use).value_or("");
        const auto* const memory = std::ranges::find(known, name);
        if (use >= uses || memory == std::end(known) ||
            !offers(faults_.offers->memories, use, fmt::format("\"{}\"", name))) {
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
    for (const std::string_view name : memory_for_) {
        const named_places_t memory = places_named(name);
        line += line.empty() ? "+CPMS: " : ",";
        line += command.form == at_form_t::read ? fmt::format("\"{}\",", name) : "";
        line += fmt::format("{},{}", faults_.full ? memory.count() : memory.used(), memory.count());
    }
    lines.push_back(std::move(line));
    return at_ok;
}

/// A message read for the first time is no longer unread. What text mode cannot tell is told as a PDU.
void message_memories_t::show(stored_message_t& message, std::optional<size_t> index, at_lines_t& lines) const {
    const std::string_view name = index ? "+CMGL" : "+CMGR";
    const auto told = !text_mode_.on() ? std::nullopt
                      : index          ? text_mode_.listed(*index, message)
                                       : text_mode_.read(message, service_centre_number_);
    if (told) {
        lines.push_back(fmt::format("{}: {}", name, told->header));
        lines.push_back(told->data);
    } else {
        const told_pdu_t written = told_pdu(message.message, faults_.pdu_form);
        lines.push_back(fmt::format("{}: {}{},,{}", name, index ? fmt::format("{},", *index) : "",
                                    static_cast<unsigned>(message.status), written.length));
        lines.push_back(written.pdu);
    }
    if (message.status == message_status_t::unread) {
        message.status = message_status_t::read;
    }
}

namespace {

constexpr unsigned all = 4;  // <stat> of +CMGL

}  // namespace

/// <stat> of +CMGL as a number, whichever way it is written.
std::optional<unsigned> message_memories_t::wanted_status(const at_parameters_t& parameters) const {
    if (!text_mode_.on()) {
        return parameters.number_or(0, all, 0);
    }
    const std::string word =
        parameters.given(0) ? parameters.text(0).value_or("") : std::string(word_of(message_status_t::unread));
    const std::optional<message_status_t> status = status_named(word);
    return word == "ALL" ? std::optional(all) : status ? std::optional(static_cast<unsigned>(*status)) : std::nullopt;
}

at_result_t message_memories_t::invalid_parameter() const {
    return text_mode_.on() ? cms_invalid_text_parameter : cms_invalid_pdu_parameter;
}

/// List messages, 3.4.2.
at_result_t message_memories_t::cmgl(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::test) {
        lines.emplace_back(text_mode_.on() ? R"(+CMGL: ("REC UNREAD","REC READ","STO UNSENT","STO SENT","ALL"))"
                                           : "+CMGL: (0-4)");
        return at_ok;
    }
    const std::optional<unsigned> status = wanted_status(at_parameters_t(command.value));
    if (!status || command.form == at_form_t::read) {
        return invalid_parameter();
    }
    named_places_t memory = places(for_reading);
    for (size_t index = 1; index <= memory.count(); ++index) {
        stored_message_t* message = memory.at(index);
        if (message != nullptr && (*status == all || *status == static_cast<unsigned>(message->status))) {
            show(*message, index, lines);
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
    show(*message, std::nullopt, lines);
    return at_ok;
}

/// Delete messages, 3.5.4: the one at the index, or with a <delflag> all of a kind.
at_result_t message_memories_t::cmgd(const at_command_t& command, at_lines_t& lines) {
    named_places_t memory = places(for_reading);
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
    const std::optional<size_t> index = faults_.full ? std::nullopt : places(for_writing).put(message);
    if (!index) {
        return cms_memory_full;
    }
    lines.push_back(fmt::format("+CMGW: {}", *index));
    return at_ok;
}

stored_message_t* message_memories_t::to_send(size_t index) {
    stored_message_t* message = places(for_writing).at(index);
    const bool one = message != nullptr &&
                     (message->status == message_status_t::unsent || message->status == message_status_t::sent);
    return one ? message : nullptr;
}

std::optional<message_memories_t::place_t> message_memories_t::store_received(const air_message_t& message) {
    const std::optional<size_t> index =
        faults_.full ? std::nullopt : places(for_receiving).put({message_status_t::unread, message});
    return index ? std::optional(place_t{memory_for_[for_receiving], *index}) : std::nullopt;
}

void message_memories_t::reset_settings() {
    const bool to_equipment = offers(faults_.offers->memories, for_receiving, "\"ME\"");
    memory_for_.fill(to_equipment ? "ME" : "SM");
}

void message_memories_t::set_places(size_t count) {
    equipment_.set_count(count);
    card_.set_count(count);
}

void message_memories_t::set_default_places() {
    equipment_.set_count(equipment_places);
    card_.set_count(card_places);
}

std::optional<size_t> message_memories_t::unusual_places() const {
    const bool usual = equipment_.count() == equipment_places && card_.count() == card_places;
    return usual ? std::nullopt : std::optional(equipment_.count());
}

}  // namespace network
