#include "network/message_service.h"

#include <fmt/format.h>

#include <utility>

#include "air/deliver_report.h"
#include "base/clock.h"
#include "base/hex.h"
#include "network/fault_table.h"
#include "network/message_pdu.h"

namespace network {

namespace {

/// How long the network waits for the acknowledgement of a delivery, in milliseconds: within TR2M's 12 to 20 s of 3GPP
/// TS 24.011 10.
constexpr uint64_t acknowledgement_limit = 15'000;

constexpr size_t mode = 0;   // of +CNMI: 0 tells the host nothing
constexpr size_t route = 1;  // of +CNMI: <mt>
constexpr unsigned indicate_place = 1;
constexpr unsigned hand_over_directly = 2;

}  // namespace

struct message_service_t::command_t {
    std::string_view name;
    std::string_view values;  // the answer to =?; empty: OK alone
    at_result_t (message_service_t::*run)(const at_command_t&, at_lines_t&);
    std::string_view capabilities_t::*offered = nullptr;  // what `values` are, where modems differ
    bool answers_test = false;                            // itself, with what depends on memory or mode
};

const message_service_t::command_t message_service_t::commands[] = {
    {"+CSMS", "", &message_service_t::csms, &capabilities_t::service},
    {"+CPMS", "", &message_service_t::of_memories<&message_memories_t::cpms>, &capabilities_t::memories},
    {"+CMGF", "(0,1)", &message_service_t::cmgf},
    {"+CSMP", "", &message_service_t::of_text_mode<&text_mode_t::csmp>},
    {"+CSDH", "(0,1)", &message_service_t::of_text_mode<&text_mode_t::csdh>},
    {"+CSCA", "", &message_service_t::csca},
    {"+CNMI", "", &message_service_t::cnmi, &capabilities_t::indications},
    {"+CMMS", "", &message_service_t::cmms, &capabilities_t::more_messages},
    {"+CMGL", "", &message_service_t::of_memories<&message_memories_t::cmgl>, nullptr, true},
    {"+CMGR", "", &message_service_t::of_memories<&message_memories_t::cmgr>},
    {"+CMGD", "", &message_service_t::of_memories<&message_memories_t::cmgd>, nullptr, true},
    {"+CMGS", "", &message_service_t::cmgs},
    {"+CMSS", "", &message_service_t::cmss},
    {"+CMGW", "", &message_service_t::cmgw},
    {"+CNMA", "(0-2)", &message_service_t::cnma},
};

message_service_t::message_service_t(std::string number, service_centre_t& service_centre, at_server_t& dialogue,
                                     const coverage_t& coverage, const sim_t& sim, const character_set_t& character_set,
                                     faults_t& faults)
    : number_(std::move(number)),
      service_centre_(service_centre),
      dialogue_(dialogue),
      coverage_(coverage),
      sim_(sim),
      faults_(faults),
      text_mode_(character_set),
      memories_(faults, text_mode_, service_centre_number_),
      service_centre_number_(service_centre_t::own_number) {}

std::optional<at_result_t> message_service_t::execute(const at_command_t& command, at_lines_t& lines) {
    for (const command_t& known : commands) {
        if (known.name != command.name) {
            continue;
        }
        const std::string_view values = known.offered == nullptr ? known.values : faults_.offers->*known.offered;
        if (known.offered != nullptr && values.empty()) {
            return at_error;
        }
        if (command.form != at_form_t::test || known.answers_test) {
            const std::optional<at_result_t> refusal = sim_.message_refusal();
            return refusal ? *refusal : (this->*known.run)(command, lines);
        }
        if (!values.empty()) {
            lines.push_back(fmt::format("{}: {}", known.name, values));
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
    text_mode_.reset_settings(faults_.text_at_start && !coverage_.on_cdma());
    memories_.reset_settings();
}

/// Message service, 3.2.1. Service 1 makes the host acknowledge what it is handed directly.
at_result_t message_service_t::csms(const at_command_t& command, at_lines_t& lines) {
    constexpr std::string_view offered = "1,1,0";  // terminated and originated messages, no broadcasts
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSMS: {},{}", settings_.service, offered));
        return at_ok;
    }
    const std::optional<unsigned> service = at_parameters_t(command.value).number(0, 1);
    if (!service || !offers(faults_.offers->service, 0, *service)) {
        return cms_not_supported;
    }
    settings_.service = *service;
    lines.push_back(fmt::format("+CSMS: {}", offered));
    return at_ok;
}

/// Message format, 3.2.3. A CDMA message has no text mode of 27.005.
at_result_t message_service_t::cmgf(const at_command_t& command, at_lines_t& lines) {
    if (coverage_.on_cdma() && at_parameters_t(command.value).number(0, 1) == 1U) {
        return cms_not_supported;
    }
    return text_mode_.cmgf(command, lines);
}

/// Service centre address, 3.3.1. Whatever a host writes here, the network has one service centre.
at_result_t message_service_t::csca(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSCA: \"{}\",{}", service_centre_number_,
                                    service_centre_number_.starts_with('+') ? 145 : 129));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<air::address_t> address = address_of(parameters.text(0).value_or(""), parameters, 0);
    if (!address) {
        return cms_invalid_pdu_parameter;
    }
    service_centre_number_ = air::number_from_address(*address);
    return at_ok;
}

/// Indications of new messages, 3.4.1. What is left out stays.
at_result_t message_service_t::cnmi(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CNMI: {}", fmt::join(settings_.indications, ",")));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    std::array<unsigned, 5> chosen = settings_.indications;
    for (size_t i = 0; i < parameters.count(); ++i) {
        const std::optional<unsigned> value =
            i < chosen.size() ? parameters.number_or(i, any_number, chosen[i]) : std::nullopt;
        if (!value || (parameters.given(i) && !offers(faults_.offers->indications, i, *value))) {
            return cms_not_supported;
        }
        chosen[i] = *value;
    }
    settings_.indications = chosen;
    return at_ok;
}

/// More messages to send, 3.5.6: the emulated link costs nothing to keep open.
at_result_t message_service_t::cmms(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CMMS: {}", settings_.more_messages));
        return at_ok;
    }
    const std::optional<unsigned> value = at_parameters_t(command.value).number(0, 2);
    if (!value || !offers(faults_.offers->more_messages, 0, *value)) {
        return cms_not_supported;
    }
    settings_.more_messages = *value;
    return at_ok;
}

/// In text mode it is written in the host's character set.
std::optional<air::address_t> message_service_t::destination(const at_parameters_t& parameters, size_t index) const {
    return in_text_mode() ? text_mode_.destination(parameters, index)
                          : address_of(parameters.text(index).value_or(""), parameters, index);
}

/// Send a message, 3.5.1: its length now, the PDU as text after it; in text mode its destination, and then the text.
at_result_t message_service_t::cmgs(const at_command_t& command, at_lines_t& /*lines*/) {
    const at_parameters_t parameters(command.value);
    if (in_text_mode()) {
        return cmgs_text(parameters);
    }
    const std::optional<unsigned> length = parameters.number(0, 255);
    if (command.form != at_form_t::set || !length || *length == 0) {
        return cms_invalid_pdu_parameter;
    }
    entry_ = {};
    entry_.length = *length;
    return at_enter_text;
}

at_result_t message_service_t::cmgs_text(const at_parameters_t& parameters) {
    entry_ = {};
    entry_.destination = destination(parameters, 0);
    return entry_.destination ? at_enter_lines : cms_invalid_text_parameter;
}

/// Write a message to the memory, 3.5.3 and 4.4: received ones (<stat> 0 and 1) or such as are to be sent.
at_result_t message_service_t::cmgw(const at_command_t& command, at_lines_t& /*lines*/) {
    const at_parameters_t parameters(command.value);
    if (in_text_mode()) {
        return cmgw_text(parameters);
    }
    const std::optional<unsigned> length = parameters.number(0, 255);
    const std::optional<unsigned> status = parameters.number_or(1, 3, 2);
    if (command.form != at_form_t::set || !length || *length == 0 || !status) {
        return cms_invalid_pdu_parameter;
    }
    entry_ = {entry_t::use_t::storage, *length, static_cast<message_status_t>(*status), {}};
    return at_enter_text;
}

/// Only such as are to be sent: of those received a text does not have all.
at_result_t message_service_t::cmgw_text(const at_parameters_t& parameters) {
    const std::string word = parameters.given(2) ? parameters.text(2).value_or("") : "STO UNSENT";
    const std::optional<message_status_t> status = status_named(word);
    if (status != message_status_t::unsent && status != message_status_t::sent) {
        return cms_invalid_text_parameter;
    }
    entry_ = {entry_t::use_t::storage, 0, *status, destination(parameters, 0)};
    return entry_.destination ? at_enter_lines : cms_invalid_text_parameter;
}

std::optional<air_message_t> message_service_t::entered_message(std::string_view text) const {
    if (!entry_.destination) {
        return message_of_pdu(text, form(), entry_.length);
    }
    const std::optional<air::submit_t> submit = text_mode_.submission(text, *entry_.destination);
    std::optional<air::octets_t> octets = submit ? air::encode(*submit) : std::nullopt;
    return octets ? std::optional(air_message_t{air_form_t::gsm_tpdu, std::move(*octets)}) : std::nullopt;
}

at_result_t message_service_t::execute_text(std::string_view text, at_lines_t& lines) {
    if (entry_.use == entry_t::use_t::acknowledgement || entry_.use == entry_t::use_t::refusal) {
        return take_report(text);
    }
    const std::optional<air_message_t> message = entered_message(text);
    if (message && entry_.use == entry_t::use_t::storage) {
        return memories_.write({entry_.status, *message}, lines);
    }
    const std::optional<submission_t> submission = message ? submission_of(*message) : std::nullopt;
    return submission           ? submit("+CMGS", *message, *submission, lines)
           : entry_.destination ? cms_invalid_text_parameter
                                : cms_invalid_pdu_parameter;
}

/// Send a message from the memory, 3.5.2: to the address in it, or to the one given here.
at_result_t message_service_t::cmss(const at_command_t& command, at_lines_t& lines) {
    const at_parameters_t parameters(command.value);
    stored_message_t* stored = memories_.to_send(parameters.number(0, any_number).value_or(0));
    if (stored == nullptr) {
        return cms_invalid_index;
    }
    std::optional<submission_t> submission = submission_of(stored->message);
    if (!submission || submission->form != form()) {
        return cms_invalid_pdu_parameter;
    }
    air_message_t message = stored->message;
    if (parameters.given(1)) {
        const auto other = destination(parameters, 1);
        if (!other || submission->form != air_form_t::gsm_tpdu) {
            return cms_invalid_pdu_parameter;
        }
        submission->submit.destination = *other;
        message.octets = air::encode(submission->submit).value_or(message.octets);
    }
    const at_result_t result = submit("+CMSS", std::move(message), *submission, lines);
    if (result.kind == at_result_t::kind_t::ok) {
        stored->status = message_status_t::sent;
    }
    return result;
}

/// A message reference that the host has given is kept; 0 stands for the modem's own count. A CDMA message has an
/// identifier of the host's.
at_result_t message_service_t::submit(std::string_view command, air_message_t message, submission_t submission,
                                      at_lines_t& lines) {
    if (!coverage_.in_service()) {
        return cms_no_network_service;
    }
    if (message.form == air_form_t::gsm_tpdu && submission.reference == 0) {
        submission.reference = submission.submit.message_reference = next_reference_++;
        message.octets = air::encode(submission.submit).value_or(message.octets);
    }
    trace(message, trace_direction_t::from_phone);
    if (faults_.refusals > 0) {
        --faults_.refusals;
        return cms_error(faults_.refusal_code);
    }
    const auto refused = faults_.refused_numbers.find(air::number_from_address(submission.submit.destination));
    if (refused != faults_.refused_numbers.end()) {
        return cms_error(refused->second);
    }
    if (const unsigned cause = service_centre_.submit(number_, submission); cause != 0) {
        return cms_error(cause);
    }
    if (faults_.lost_results > 0) {
        --faults_.lost_results;
        return at_nothing;
    }
    lines.push_back(fmt::format("{}: {}", command, submission.reference));
    return at_ok;
}

/// Acknowledgement of a direct delivery, 3.4.4: 0 and 1 accept it, 2 does not. With a length, a report follows as text.
at_result_t message_service_t::cnma(const at_command_t& command, at_lines_t& /*lines*/) {
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> kind = parameters.number_or(0, 2, 0);
    const std::optional<unsigned> length = parameters.number_or(1, 255, 0);
    if (!kind || !length || command.form == at_form_t::read) {
        return cms_not_supported;
    }
    if (!acknowledge_until_) {
        return cms_no_acknowledgement_expected;
    }
    if (*length > 0) {
        entry_ = {};
        entry_.use = *kind == 2 ? entry_t::use_t::refusal : entry_t::use_t::acknowledgement;
        entry_.length = *length;
        return at_enter_text;
    }
    end_pending(*kind != 2);
    return at_ok;
}

/// A report is a TPDU without the service centre's address. The delivery still waits for one after a malformed one.
at_result_t message_service_t::take_report(std::string_view text) {
    const bool accepted = entry_.use == entry_t::use_t::acknowledgement;
    const std::optional<air::octets_t> octets = base::from_hex(text);
    const auto kind = accepted ? air::deliver_report_t::of_acknowledgement : air::deliver_report_t::of_error;
    if (!octets || octets->size() != entry_.length || !air::is_deliver_report(*octets, kind)) {
        return cms_invalid_pdu_parameter;
    }
    if (!acknowledge_until_) {
        return cms_no_acknowledgement_expected;
    }
    end_pending(accepted);
    return at_ok;
}

receiver_t::taken_t message_service_t::deliver(const air_message_t& message) {
    const taken_t taken = receive(message);
    if (taken != taken_t::not_now) {
        trace(message, trace_direction_t::to_phone);
    }
    return taken;
}

void message_service_t::trace(const air_message_t& message, trace_direction_t direction) const {
    service_centre_.trace().write(number_, name_of(coverage_.technology), message, direction);
}

receiver_t::taken_t message_service_t::receive(const air_message_t& message) {
    if (!coverage_.in_service()) {
        return taken_t::not_now;
    }
    const unsigned way = settings_.indications[mode] == 0 ? 0 : settings_.indications[route];
    if (faults_.both_ways) {
        const taken_t taken = store_delivery(message, way != 0);
        if (taken == taken_t::acknowledged) {
            hand_over(message);
        }
        return taken;
    }
    return way == hand_over_directly ? deliver_directly(message) : store_delivery(message, way == indicate_place);
}

receiver_t::taken_t message_service_t::store_delivery(const air_message_t& message, bool announce) {
    const auto place = memories_.store_received(message);
    if (!place && !faults_.full_line.empty() && !std::exchange(full_told_, true)) {
        dialogue_.unsolicited(faults_.full_line);
    }
    if (!place) {
        return taken_t::not_now;
    }
    full_told_ = false;
    if (announce && !faults_.unannounced) {
        dialogue_.unsolicited(
            fmt::format("+CMTI: \"{}\",{}", place->memory, faults_.wrong_index ? "-1" : std::to_string(place->index)));
    }
    return taken_t::acknowledged;
}

receiver_t::taken_t message_service_t::deliver_directly(const air_message_t& message) {
    if (!dialogue_.free()) {
        return taken_t::not_now;
    }
    hand_over(message);
    if (settings_.service == 0) {
        return taken_t::acknowledged;
    }
    acknowledge_until_ = base::tick64() + acknowledgement_limit;
    return taken_t::pending;
}

void message_service_t::hand_over(const air_message_t& message) {
    if (const auto told = text_mode_.on() ? text_mode_.delivered(message, service_centre_number_) : std::nullopt) {
        dialogue_.unsolicited(fmt::format("+CMT: {}\r\n{}", told->header, told->data));
        return;
    }
    const told_pdu_t written = told_pdu(message, faults_.pdu_form);
    dialogue_.unsolicited(fmt::format("+CMT: ,{}\r\n{}", written.length, written.pdu));
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
        settings_.indications[route] = 0;
    }
    service_centre_.acknowledge(number_, accepted);
}

}  // namespace network
