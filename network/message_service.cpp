#include "network/message_service.h"

#include <fmt/format.h>

#include "platform/linux/clock.h"
#include "platform/linux/hex.h"

namespace network {

namespace {

constexpr size_t me_places = 100;
constexpr size_t sm_places = 20;

/// How long the network waits for the acknowledgement of a delivery, in milliseconds: within TR2M's 12 to 20 s of 3GPP
/// TS 24.011 10.
constexpr uint64_t acknowledgement_limit = 15'000;

/// Highest number of a parameter whose range the command itself checks.
constexpr unsigned any_number = 65'535;

// <mt> of +CNMI
constexpr unsigned indicate_place = 1;
constexpr unsigned hand_over = 2;

}  // namespace

struct message_service_t::command_t {
    std::string_view name;
    std::string_view values;  // the answer to =?; empty: OK alone
    at_result_t (message_service_t::*run)(const at_command_t&, at_lines_t&);
};

// +CMGD's list depends on the memory: the command itself answers.
const message_service_t::command_t message_service_t::commands[] = {
    {"+CSMS", "(0,1)", &message_service_t::csms},
    {"+CPMS", R"(("ME","SM"),("ME","SM"),("ME","SM"))", &message_service_t::cpms},
    {"+CMGF", "(0)", &message_service_t::cmgf},
    {"+CSCA", "", &message_service_t::csca},
    {"+CNMI", "(0-2),(0-2),(0),(0),(0,1)", &message_service_t::cnmi},
    {"+CMMS", "(0-2)", &message_service_t::cmms},
    {"+CMGL", "(0-4)", &message_service_t::cmgl},
    {"+CMGR", "", &message_service_t::cmgr},
    {"+CMGD", "", &message_service_t::cmgd},
    {"+CMGS", "", &message_service_t::cmgs},
    {"+CNMA", "(0-2)", &message_service_t::cnma},
};

message_service_t::message_service_t(std::string number, service_centre_t& service_centre, at_server_t& dialogue,
                                     const coverage_t& coverage, faults_t& faults)
    : number_(std::move(number)),
      service_centre_(service_centre),
      dialogue_(dialogue),
      coverage_(coverage),
      faults_(faults),
      memories_{{{"ME", message_store_t(me_places)}, {"SM", message_store_t(sm_places)}}},
      service_centre_number_(service_centre_t::own_number) {}

std::optional<at_result_t> message_service_t::execute(const at_command_t& command, at_lines_t& lines) {
    for (const command_t& known : commands) {
        if (known.name != command.name) {
            continue;
        }
        if (command.form != at_form_t::test || known.name == "+CMGD") {
            return (this->*known.run)(command, lines);
        }
        if (!known.values.empty()) {
            lines.push_back(fmt::format("{}: {}", known.name, known.values));
        }
        return at_ok;
    }
    return std::nullopt;
}

void message_service_t::list_commands(at_lines_t& lines) {
    for (const command_t& known : commands) {
        lines.emplace_back(known.name);
    }
}

void message_service_t::reset_settings() {
    end_pending(false);
    settings_ = {};
}

/// Message service, 3.2.1. Service 1 makes the host acknowledge what it is handed directly.
at_result_t message_service_t::csms(const at_command_t& command, at_lines_t& lines) {
    constexpr std::string_view offered = "1,1,0";  // terminated and originated messages, no broadcasts
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSMS: {},{}", settings_.service, offered));
        return at_ok;
    }
    const std::optional<unsigned> service = at_parameters_t(command.value).number(0, 1);
    if (!service) {
        return cms_not_supported;
    }
    settings_.service = *service;
    lines.push_back(fmt::format("+CSMS: {}", offered));
    return at_ok;
}

/// Preferred message storage, 3.2.2: for reading and deleting, for writing, for what is received.
at_result_t message_service_t::cpms(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::set) {
        const at_parameters_t parameters(command.value);
        std::array<size_t, 3> chosen = settings_.memory_of;
        for (size_t use = 0; use < std::max<size_t>(parameters.count(), 1); ++use) {
            const std::optional<size_t> memory = memory_named(parameters.text(use).value_or(""));
            if (use >= chosen.size() || !memory) {
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

/// Message format, 3.2.3: PDU mode and no other.
at_result_t message_service_t::cmgf(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.emplace_back("+CMGF: 0");
        return at_ok;
    }
    return at_parameters_t(command.value).number_or(0, 0, 0) ? at_ok : cms_not_supported;
}

/// Service centre address, 3.3.1. Whatever a host writes here, the network has one service centre.
at_result_t message_service_t::csca(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSCA: \"{}\",{}", service_centre_number_,
                                    service_centre_number_.starts_with('+') ? 145 : 129));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<std::string> text = parameters.text(0);
    const std::optional<unsigned> type = parameters.number_or(1, 255, 129);
    if (!text || !type || !tpdu::address_from_number(*text)) {
        return cms_invalid_pdu_parameter;
    }
    service_centre_number_ = (*type == 145 && !text->starts_with('+') ? "+" : "") + *text;
    return at_ok;
}

at_result_t message_service_t::cnmi(const at_command_t& command, at_lines_t& lines) {
    indications_t& now = settings_.indications;
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CNMI: {},{},0,0,{}", now.mode, now.messages, now.buffer));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> mode = parameters.number_or(0, 2, now.mode);
    const std::optional<unsigned> messages = parameters.number_or(1, 2, now.messages);
    const bool no_others = parameters.number_or(2, 0, 0) && parameters.number_or(3, 0, 0) && parameters.count() <= 5;
    const std::optional<unsigned> buffer = parameters.number_or(4, 1, now.buffer);
    if (!mode || !messages || !no_others || !buffer) {
        return cms_not_supported;
    }
    now = {*mode, *messages, *buffer};
    return at_ok;
}

/// More messages to send, 3.5.6: the emulated link costs nothing to keep open.
at_result_t message_service_t::cmms(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CMMS: {}", settings_.more_messages));
        return at_ok;
    }
    const std::optional<unsigned> value = at_parameters_t(command.value).number(0, 2);
    settings_.more_messages = value.value_or(settings_.more_messages);
    return value ? at_ok : cms_not_supported;
}

/// List messages, 3.4.2. <stat> 0 unread, 1 read, 2 and 3 stored for sending (there are none), 4 all.
at_result_t message_service_t::cmgl(const at_command_t& command, at_lines_t& lines) {
    const std::optional<unsigned> status = at_parameters_t(command.value).number_or(0, 4, 0);
    if (!status || command.form == at_form_t::read) {
        return cms_invalid_pdu_parameter;
    }
    message_store_t& memory = store(0);
    for (size_t index = 1; index <= memory.places(); ++index) {
        stored_message_t* message = memory.at(index);
        if (message != nullptr && (*status == 4 || *status == (message->read ? 1U : 0U))) {
            lines.push_back(fmt::format("+CMGL: {},{},,{}", index, message->read ? 1 : 0, message->tpdu.size()));
            lines.push_back(pdu_text(message->tpdu));
            message->read = true;
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
    lines.push_back(fmt::format("+CMGR: {},,{}", message->read ? 1 : 0, message->tpdu.size()));
    lines.push_back(pdu_text(message->tpdu));
    message->read = true;
    return at_ok;
}

/// Delete messages, 3.5.4. <delflag> 0 the one at the index, 1 to 3 all that are read, 4 all.
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
    for (size_t i = 1; i <= memory.places(); ++i) {
        const stored_message_t* message = memory.at(i);
        if (message != nullptr && (*flag == 0 ? i == *index : *flag == 4 || message->read)) {
            memory.erase(i);
        }
    }
    return at_ok;
}

/// Send a message, 3.5.1: the length of the TPDU now, the PDU as text after it.
at_result_t message_service_t::cmgs(const at_command_t& command, at_lines_t& /*lines*/) {
    const std::optional<unsigned> length = at_parameters_t(command.value).number(0, 255);
    if (command.form != at_form_t::set || !length || *length == 0) {
        return cms_invalid_pdu_parameter;
    }
    expected_length_ = *length;
    return at_enter_text;
}

at_result_t message_service_t::execute_text(std::string_view text, at_lines_t& lines) {
    const auto octets = platform::from_hex(text);
    const auto pdu = octets ? tpdu::decode_pdu(*octets) : std::nullopt;
    const auto submit = pdu && pdu->tpdu.size() == expected_length_ ? tpdu::decode_submit(pdu->tpdu) : std::nullopt;
    if (!submit) {
        return cms_invalid_pdu_parameter;
    }
    if (!coverage_.in_service()) {
        return cms_no_network_service;
    }
    const uint8_t reference = next_reference_++;
    if (faults_.refusals > 0) {
        --faults_.refusals;
        return cms_error(faults_.refusal_code);
    }
    if (const unsigned cause = service_centre_.submit(number_, *submit); cause != 0) {
        return cms_error(cause);
    }
    if (faults_.lost_results > 0) {
        --faults_.lost_results;
        return at_nothing;
    }
    lines.push_back(fmt::format("+CMGS: {}", reference));
    return at_ok;
}

/// Acknowledgement of a direct delivery, 3.4.4: 0 and 1 accept it, 2 does not.
at_result_t message_service_t::cnma(const at_command_t& command, at_lines_t& /*lines*/) {
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> kind = parameters.number_or(0, 2, 0);
    if (!kind || !parameters.number_or(1, 0, 0) || command.form == at_form_t::read) {
        return cms_not_supported;
    }
    if (!acknowledge_until_) {
        return cms_no_acknowledgement_expected;
    }
    end_pending(*kind != 2);
    return at_ok;
}

receiver_t::taken_t message_service_t::deliver(const tpdu::octets_t& tpdu) {
    if (!coverage_.in_service()) {
        return taken_t::not_now;
    }
    const unsigned messages = settings_.indications.mode == 0 ? 0 : settings_.indications.messages;
    if (messages == hand_over) {
        return deliver_directly(tpdu);
    }
    const std::optional<size_t> place = store(2).put({false, tpdu});
    if (!place) {
        return taken_t::not_now;
    }
    if (messages == indicate_place) {
        dialogue_.unsolicited(fmt::format("+CMTI: \"{}\",{}", memories_[settings_.memory_of[2]].name, *place));
    }
    return taken_t::acknowledged;
}

receiver_t::taken_t message_service_t::deliver_directly(const tpdu::octets_t& tpdu) {
    if (!dialogue_.free()) {
        return taken_t::not_now;
    }
    dialogue_.unsolicited(fmt::format("+CMT: ,{}\r\n{}", tpdu.size(), pdu_text(tpdu)));
    if (settings_.service == 0) {
        return taken_t::acknowledged;
    }
    acknowledge_until_ = platform::tick64() + acknowledgement_limit;
    return taken_t::pending;
}

void message_service_t::pass_deadline() {
    end_pending(false);
}

/// A host that does not accept what it is handed gets no more of it: <mt> falls back to 0 (3.4.1), and the message,
/// which the service centre still has, is stored.
void message_service_t::end_pending(bool accepted) {
    if (!acknowledge_until_) {
        return;
    }
    acknowledge_until_.reset();
    if (!accepted) {
        settings_.indications.messages = 0;
    }
    service_centre_.acknowledge(number_, accepted);
}

std::string message_service_t::pdu_text(const tpdu::octets_t& tpdu) const {
    const auto centre = tpdu::address_from_number(service_centre_t::own_number);
    const auto pdu = tpdu::encode_pdu({centre.value_or(tpdu::address_t{}), tpdu});
    return platform::to_hex(pdu.value_or(tpdu::octets_t{}));
}

bool message_service_t::set_places(std::string_view memory, size_t places) {
    const std::optional<size_t> index = memory_named(memory);
    if (index) {
        memories_[*index].store.set_places(places);
    }
    return index.has_value();
}

}  // namespace network
