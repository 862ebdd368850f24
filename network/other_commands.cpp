#include "network/other_commands.h"

#include <fmt/format.h>

#include <ctime>
#include <utility>

#include "base/hex.h"
#include "network/capabilities.h"
#include "network/identity.h"

namespace network {

struct other_commands_t::command_t {
    std::string_view name;
    std::string_view values = {};    // the answer to =?; empty: OK alone
    std::string_view standing = {};  // the answer to ?; empty: there is none
    std::string_view executed = {};  // the answer without parameters; empty: likewise
    size_t checked = 0;              // so many parameters can be set, each to what `values` list for it
    bool remembered = false;         // what was set is the answer to ? from then on
    bool tells_nothing = false;      // there is nothing to tell without parameters: OK alone
    // Instead of all this but `values`: the answer depends on the modem.
    at_result_t (other_commands_t::*run)(const at_command_t&, at_lines_t&) = nullptr;
};

const other_commands_t::command_t other_commands_t::commands[] = {
    // 3GPP TS 27.007: ready, no call; packet domain attached as far as there is a network; one context, without data.
    {.name = "+CPAS", .values = "(0,3,4)", .executed = "0"},
    {.name = "+CGATT", .values = "(0,1)", .run = &other_commands_t::cgatt},
    {.name = "+CGDCONT", .values = R"((1),"IP",,,(0),(0))", .run = &other_commands_t::cgdcont},
    {.name = "+CIND",
     .values = R"(("battchg",(0-5)),("signal",(0-5)),("service",(0,1)),("roam",(0,1)))",
     .run = &other_commands_t::cind},
    {.name = "+CCLK", .run = &other_commands_t::cclk},
    {.name = "+CUSD", .values = "(0-2)", .run = &other_commands_t::cusd},
    {.name = "+CBC", .values = "(0),(0-100)", .executed = "0,100"},
    {.name = "+CTZU", .values = "(0,1)", .standing = "0", .checked = 1, .remembered = true},
    // Calls, none of which ever comes.
    {.name = "+CLCC", .tells_nothing = true},
    {.name = "+CRC", .values = "(0,1)", .standing = "0", .checked = 1, .remembered = true},
    {.name = "+CLIP", .values = "(0,1)", .checked = 1},
    {.name = "+CCWA", .values = "(0,1)", .checked = 1},
    // The SIM: its PIN is all that locks; two of its files; an empty phone book.
    {.name = "+CLCK", .values = R"(("SC"))", .run = &other_commands_t::clck},
    {.name = "+CPWD", .values = R"(("SC",8))"},
    {.name = "+CRSM", .run = &other_commands_t::crsm},
    {.name = "+CCID", .run = &other_commands_t::ccid},
    {.name = "+CPBS", .values = R"(("SM"))", .standing = R"("SM",0,250)", .checked = 1},
    {.name = "+CPBR", .values = "(1-250),40,16", .checked = 1},
    // The line, V.250 6.2.10 to 6.2.12: a pseudo-terminal has neither speed nor parity.
    {.name = "+IFC", .values = "(0-2),(0-2)", .standing = "2,2", .checked = 2, .remembered = true},
    {.name = "+ICF", .values = "(0-6),(0-3)", .standing = "3,3", .checked = 2, .remembered = true},
    {.name = "+IPR",
     .values = "(0,1200,2400,4800,9600,19200,38400,57600,115200,230400,460800,921600)",
     .standing = "0",
     .checked = 1,
     .remembered = true},
};

std::optional<at_result_t> other_commands_t::execute(const at_command_t& command, at_lines_t& lines) {
    for (const command_t& known : commands) {
        if (known.name == command.name) {
            return execute(known, command, lines);
        }
    }
    return std::nullopt;
}

at_result_t other_commands_t::execute(const command_t& known, const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::test) {
        if (!known.values.empty()) {
            lines.push_back(fmt::format("{}: {}", known.name, known.values));
        }
        return at_ok;
    }
    if (known.run != nullptr) {
        return (this->*known.run)(command, lines);
    }
    if (command.form == at_form_t::set) {
        return set(known, command.value);
    }
    const auto chosen = settings_.find(known.name);
    const std::string_view answer = command.form == at_form_t::execute ? known.executed
                                    : chosen != settings_.end()        ? chosen->second
                                                                       : known.standing;
    if (answer.empty()) {
        return known.tells_nothing && command.form == at_form_t::execute ? at_ok : cme_not_allowed;
    }
    lines.push_back(fmt::format("{}: {}", known.name, answer));
    return at_ok;
}

at_result_t other_commands_t::set(const command_t& known, const std::string& value) {
    const at_parameters_t parameters(value);
    for (size_t i = 0; i < parameters.count(); ++i) {
        const std::optional<unsigned> number = parameters.number(i, UINT32_MAX);
        const std::string written =
            number ? std::to_string(*number) : fmt::format("\"{}\"", parameters.text(i).value_or(""));
        if (i < known.checked && parameters.given(i) && !offers(known.values, i, written)) {
            return cme_incorrect_parameters;
        }
    }
    if (known.checked == 0 || !parameters.given(0)) {
        return cme_incorrect_parameters;
    }
    if (known.remembered) {
        settings_[known.name] = value;
    }
    return at_ok;
}

void other_commands_t::list_commands(at_lines_t& lines) {
    for (const command_t& known : commands) {
        lines.emplace_back(known.name);
    }
}

void other_commands_t::reset_settings() {
    settings_.clear();
    attached_ = true;
    shows_answers_ = false;
    unsolicited_.reset();
}

std::optional<std::string> other_commands_t::take_unsolicited() {
    return std::exchange(unsolicited_, std::nullopt);
}

/// Packet domain attach, 3GPP TS 27.007 10.1.9.
at_result_t other_commands_t::cgatt(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CGATT: {}", attached_ && modem_.coverage.in_service() ? 1 : 0));
        return at_ok;
    }
    const std::optional<unsigned> state = at_parameters_t(command.value).number(0, 1);
    attached_ = state ? *state == 1 : attached_;
    return state ? at_ok : cme_incorrect_parameters;
}

/// Clock, 8.15: the network's local time, whatever a host sets.
at_result_t other_commands_t::cclk(const at_command_t& command, at_lines_t& lines) {
    if (command.form != at_form_t::read) {
        return at_parameters_t(command.value).text(0) ? at_ok : cme_incorrect_parameters;
    }
    constexpr long seconds_a_quarter = 900;
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    lines.push_back(fmt::format("+CCLK: \"{:02}/{:02}/{:02},{:02}:{:02}:{:02}{:+03}\"", local.tm_year % 100,
                                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                                local.tm_gmtoff / seconds_a_quarter));
    return at_ok;
}

/// Facility lock, 7.4: whether the SIM asks for its PIN, which no host can change.
at_result_t other_commands_t::clck(const at_command_t& command, at_lines_t& lines) {
    constexpr unsigned query = 2;
    const at_parameters_t parameters(command.value);
    if (parameters.text(0) != "SC" || parameters.number(1, query) != query) {
        return cme_not_allowed;
    }
    lines.push_back(fmt::format("+CLCK: {}", modem_.sim.asks_for_pin() ? 1 : 0));
    return at_ok;
}

/// Indicators, 8.9: battery, signal, service, roaming. The host may not set them.
at_result_t other_commands_t::cind(const at_command_t& command, at_lines_t& lines) {
    if (command.form != at_form_t::read) {
        return cme_not_allowed;
    }
    const bool served = modem_.coverage.in_service();
    const bool roaming = modem_.coverage.registration == registration_t::roaming;
    lines.push_back(fmt::format("+CIND: 5,{},{},{}", served ? 4 : 0, served ? 1 : 0, roaming ? 1 : 0));
    return at_ok;
}

/// Packet data context, 10.1.1: the number alone undefines it.
at_result_t other_commands_t::cgdcont(const at_command_t& command, at_lines_t& lines) {
    constexpr std::string_view name = "+CGDCONT";
    if (command.form == at_form_t::read) {
        if (settings_.contains(name)) {
            lines.push_back(fmt::format("{}: {}", name, settings_[name]));
        }
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    if (parameters.number(0, 1) != 1U || (parameters.given(1) && parameters.text(1) != "IP")) {
        return cme_incorrect_parameters;
    }
    if (parameters.count() == 1) {
        settings_.erase(name);
    } else {
        settings_[name] = command.value;
    }
    return at_ok;
}

namespace {

// Of 3GPP TS 51.011: 9.2 the commands, 9.3 what a file tells of itself, 9.4 how they end.
constexpr unsigned read_binary = 176;
constexpr unsigned get_response = 192;
constexpr std::string_view normal_end = "144,0";
constexpr std::string_view file_not_found = "106,130";
constexpr unsigned file_of_card_identity = 0x2FE2;
constexpr unsigned file_of_subscriber_identity = 0x6F07;

/// An elementary file, transparent, not invalidated: its size, its identifier, its type and that no more of it is told.
air::octets_t file_description(unsigned file, size_t size) {
    return {0,
            0,
            static_cast<uint8_t>(size >> 8),
            static_cast<uint8_t>(size),
            static_cast<uint8_t>(file >> 8),
            static_cast<uint8_t>(file),
            4,
            0,
            0x0F,
            0xFF,
            0xFF,
            1,
            2,
            0,
            0};
}

}  // namespace

/// Restricted SIM access, 8.18: two files, to be read as a whole or in part.
at_result_t other_commands_t::crsm(const at_command_t& command, at_lines_t& lines) {
    if (const std::optional<at_result_t> refusal = modem_.sim.refusal()) {
        return *refusal;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> order = parameters.number(0, 255);
    const std::optional<unsigned> file = parameters.number(1, any_number);
    if (!order || (*order != read_binary && *order != get_response) || !file) {
        return cme_not_allowed;
    }
    if (*file != file_of_card_identity && *file != file_of_subscriber_identity) {
        lines.push_back(fmt::format("+CRSM: {}", file_not_found));
        return at_ok;
    }
    air::octets_t octets =
        *file == file_of_card_identity ? card_identity_file(modem_.number) : subscriber_identity_file(modem_.number);
    if (*order == get_response) {
        octets = file_description(*file, octets.size());
    } else if (const unsigned length = parameters.number_or(4, 255, 0).value_or(0); length != 0) {
        octets.resize(std::min<size_t>(length, octets.size()));
    }
    lines.push_back(fmt::format("+CRSM: {},\"{}\"", normal_end, base::to_hex(octets)));
    return at_ok;
}

/// ICCID, a command that no standard has and most modems know: told before the PIN, too.
at_result_t other_commands_t::ccid(const at_command_t& /*command*/, at_lines_t& lines) {
    if (const std::optional<at_result_t> refusal = modem_.sim.refusal()) {
        return *refusal;
    }
    lines.push_back(fmt::format("+CCID: {}", card_identity(modem_.number)));
    return at_ok;
}

/// Unstructured supplementary service data, 7.15: whatever the code, the network answers the same, and is done.
at_result_t other_commands_t::cusd(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CUSD: {}", shows_answers_ ? 1 : 0));
        return at_ok;
    }
    constexpr unsigned cancel = 2;
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> show = parameters.number_or(0, cancel, 0);
    const std::optional<std::string> code = parameters.text(1);
    if (!show || (parameters.given(1) && (!code || !from_host(*code, modem_.character_set)))) {
        return cme_incorrect_parameters;
    }
    if (*show == cancel) {
        return at_ok;
    }
    shows_answers_ = *show == 1;
    if (code && !modem_.coverage.in_service()) {
        return cme_no_network_service;
    }
    if (code && shows_answers_) {
        constexpr unsigned no_further_action = 0;
        constexpr unsigned default_alphabet = 15;  // 3GPP TS 23.038 5
        unsolicited_ = fmt::format("+CUSD: {},\"{}\",{}", no_further_action,
                                   to_host(modem_.faults.service_answer, modem_.character_set), default_alphabet);
    }
    return at_ok;
}

}  // namespace network
