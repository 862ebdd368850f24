#include "network/modem.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/clock.h"
#include "network/identity.h"

namespace network {

namespace {

constexpr std::string_view manufacturer = "ZPD";
constexpr std::string_view model = "Emulated modem";
constexpr std::string_view revision = "1.0";

constexpr std::string_view operator_names[] = {"Test Network", "Test", network_code};  // by <format> of +COPS

/// Commands that a modem has to bear, and on which nothing here depends: call control, modulation, line signals.
constexpr std::string_view borne_silently[] = {"H",  "L",  "M",  "X",  "&C", "&D", "&K",
                                               "&S", "&W", "S0", "S6", "S7", "S8"};

bool is_evolved(access_technology_t technology) {
    return technology >= access_technology_t::e_utran && technology <= access_technology_t::last;
}

}  // namespace

struct modem_t::command_t {
    std::string_view name;
    std::string_view values;  // the answer to =?; empty: OK alone
    at_result_t (modem_t::*run)(const at_command_t&, at_lines_t&);
    bool answers_test = false;  // the values depend on the modem
};

const modem_t::command_t modem_t::commands[] = {
    {"I", "", &modem_t::identify},
    {"+CGMI", "", &modem_t::identify},
    {"+GMI", "", &modem_t::identify},
    {"+CGMM", "", &modem_t::identify},
    {"+GMM", "", &modem_t::identify},
    {"+CGMR", "", &modem_t::identify},
    {"+GMR", "", &modem_t::identify},
    {"+CGSN", "", &modem_t::identify},
    {"+GSN", "", &modem_t::identify},
    {"+CIMI", "", &modem_t::identify},
    {"+GCAP", "", &modem_t::identify},
    {"+CNUM", "", &modem_t::cnum},
    {"+CPIN", "", &modem_t::cpin},
    {"+CPINR", "", &modem_t::cpinr},
    {"+CSQ", "(0-31,99),(99)", &modem_t::csq},
    {"+CFUN", "(0,1,4),(0)", &modem_t::cfun},
    {"+CSCS", R"(("GSM","IRA","UCS2"))", &modem_t::cscs},
    {"+CREG", "(0-2)", &modem_t::creg},
    {"+CGREG", "(0-2)", &modem_t::creg},
    {"+CEREG", "(0-2)", &modem_t::creg},
    {"+COPS", "", &modem_t::cops, true},
    {"+CAD", "", &modem_t::cad},
    {"+CSS", "", &modem_t::css},
    {"+CLAC", "", &modem_t::clac},
};

modem_t::modem_t(const std::string& number, access_technology_t technology, service_centre_t& service_centre)
    : number_(number),
      own_technology_(technology),
      dialogue_(*this, faults_),
      messages_(number, service_centre, dialogue_, coverage_, sim_, character_set_, faults_) {}

void modem_t::power_on() {
    dialogue_.power_on();
    reset_settings();
    functionality_ = full_functionality;
    sim_.power_on();
    update_coverage();
}

void modem_t::reset_settings() {
    messages_.reset_settings();
    reports_ = {};
    operator_format_ = 0;
    character_set_ = character_set_t::gsm;
    others_.reset_settings();
}

std::optional<uint64_t> modem_t::deadline() const {
    if (others_.has_unsolicited()) {
        return base::tick64();
    }
    const std::optional<uint64_t> speech = dialogue_.deadline();
    const std::optional<uint64_t> acknowledgement = messages_.deadline();
    return speech && acknowledgement ? std::min(speech, acknowledgement) : speech ? speech : acknowledgement;
}

void modem_t::pass_deadline() {
    const uint64_t now = base::tick64();
    if (const std::optional<std::string> line = others_.take_unsolicited()) {
        dialogue_.unsolicited(*line);
    }
    if (messages_.deadline().value_or(UINT64_MAX) <= now) {
        messages_.pass_deadline();
    }
    if (dialogue_.deadline().value_or(UINT64_MAX) <= now) {
        dialogue_.pass_deadline();
    }
}

at_result_t modem_t::execute(const at_command_t& command, at_lines_t& lines) {
    if (std::find(std::begin(borne_silently), std::end(borne_silently), command.name) != std::end(borne_silently)) {
        return at_ok;
    }
    for (const command_t& known : commands) {
        if (known.name != command.name) {
            continue;
        }
        if (command.form != at_form_t::test || known.answers_test) {
            return (this->*known.run)(command, lines);
        }
        if (!known.values.empty()) {
            lines.push_back(fmt::format("{}: {}", known.name, known.values));
        }
        return at_ok;
    }
    const std::optional<at_result_t> result = messages_.execute(command, lines);
    return result ? *result : others_.execute(command, lines).value_or(at_error);
}

at_result_t modem_t::execute_text(std::string_view text, at_lines_t& lines) {
    return messages_.execute_text(text, lines);
}

/// 5.1 to 5.6 of 3GPP TS 27.007, and V.250 6.1.3 to 6.1.9 for the same without the C.
at_result_t modem_t::identify(const at_command_t& command, at_lines_t& lines) {
    const std::string_view name = command.name;
    if (command.form == at_form_t::read || (command.form == at_form_t::set && name != "+CGSN")) {
        return cme_not_allowed;
    }
    if (name == "I") {
        lines.insert(lines.end(), {std::string(manufacturer), std::string(model), std::string(revision)});
    } else if (name == "+GCAP") {
        lines.emplace_back(coverage_.on_cdma() ? "+GCAP: +CIS707-A" : "+GCAP: +CGSM");
    } else if (name == "+CIMI") {
        lines.push_back(subscriber_identity(number_));
    } else if (name.ends_with("GSN")) {
        lines.push_back(equipment_identity(number_));
    } else {
        lines.emplace_back(name.ends_with("GMI") ? manufacturer : name.ends_with("GMM") ? model : revision);
    }
    return at_ok;
}

/// Subscriber number, 7.1.
at_result_t modem_t::cnum(const at_command_t& /*command*/, at_lines_t& lines) {
    lines.push_back(fmt::format("+CNUM: ,\"{}\",{}", number_, number_.starts_with('+') ? 145 : 129));
    return at_ok;
}

/// Enter PIN, 8.3. A second parameter would be a new PIN after a PUK; there is none to be had.
at_result_t modem_t::cpin(const at_command_t& command, at_lines_t& lines) {
    if (const std::optional<at_result_t> refusal = sim_.refusal()) {
        return *refusal;
    }
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CPIN: {}", sim_.state()));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    if (command.form != at_form_t::set || parameters.count() != 1) {
        return cme_not_allowed;
    }
    // Digits may stand without quotes.
    const at_result_t result = sim_.enter(parameters.text(0).value_or(command.value));
    update_coverage();
    return result;
}

/// Remaining PIN retries, 8.65.
at_result_t modem_t::cpinr(const at_command_t& command, at_lines_t& lines) {
    if (command.form != at_form_t::execute && at_parameters_t(command.value).text(0) != "SIM PIN") {
        return cme_not_allowed;
    }
    lines.push_back(fmt::format("+CPINR: SIM PIN,{},3", sim_.tries_left()));
    return at_ok;
}

/// Signal quality, 8.5.
at_result_t modem_t::csq(const at_command_t& command, at_lines_t& lines) {
    if (command.form != at_form_t::execute) {
        return cme_not_allowed;
    }
    lines.emplace_back(coverage_.in_service() ? "+CSQ: 21,99" : "+CSQ: 99,99");
    return at_ok;
}

/// Functionality, 8.2: minimum, full, or all but the radio. Only with full functionality there is a network; the modem
/// does not restart.
at_result_t modem_t::cfun(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CFUN: {}", functionality_));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> wanted = parameters.number(0, 4);
    if (!wanted || (*wanted != 0 && *wanted != full_functionality && *wanted != 4) || !parameters.number_or(1, 0, 0)) {
        return cme_not_allowed;
    }
    functionality_ = *wanted;
    update_coverage();
    return at_ok;
}

/// Character set, 5.5.
at_result_t modem_t::cscs(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CSCS: \"{}\"", name_of(character_set_)));
        return at_ok;
    }
    const auto set = character_set_named(at_parameters_t(command.value).text(0).value_or(""));
    if (!set) {
        return cme_incorrect_parameters;
    }
    character_set_ = *set;
    return at_ok;
}

unsigned& modem_t::reports_of(std::string_view name) {
    return name == "+CREG" ? reports_.creg : name == "+CGREG" ? reports_.cgreg : reports_.cereg;
}

/// Registration in the circuit-switched, GPRS and evolved packet domain, 7.2, 10.1.20 and 10.1.22.
at_result_t modem_t::creg(const at_command_t& command, at_lines_t& lines) {
    unsigned& reports = reports_of(command.name);
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("{}: {},{}", command.name, reports, registration(command.name, reports)));
        return at_ok;
    }
    const std::optional<unsigned> value = at_parameters_t(command.value).number_or(0, 2, 0);
    if (!value) {
        return cme_incorrect_parameters;
    }
    reports = *value;
    return at_ok;
}

/// <stat>, and for detail 2 in coverage the cell and the access technology. The GPRS domain is that of the technologies
/// before LTE, the evolved one that of LTE and of what came after it.
std::string modem_t::registration(std::string_view name, unsigned detail) const {
    const bool other_domain = name == "+CGREG"   ? is_evolved(coverage_.technology) || coverage_.on_cdma()
                              : name == "+CEREG" ? !is_evolved(coverage_.technology)
                                                 : false;
    if (other_domain) {
        return "0";
    }
    std::string text = fmt::format("{}", static_cast<unsigned>(coverage_.registration));
    if (detail == 2 && coverage_.in_service()) {
        text += R"(,"0001","00000001")" + technology();
    }
    return text;
}

/// As a further value of a line; <AcT> has none for CDMA.
std::string modem_t::technology() const {
    return coverage_.on_cdma() ? "" : fmt::format(",{}", static_cast<unsigned>(coverage_.technology));
}

/// Analog or digital service of 3GPP2 C.S0017: 0 none, 1 CDMA.
at_result_t modem_t::cad(const at_command_t& command, at_lines_t& lines) {
    if (command.form != at_form_t::read) {
        return cme_not_allowed;
    }
    lines.push_back(fmt::format("+CAD: {}", coverage_.on_cdma() && coverage_.in_service() ? 1 : 0));
    return at_ok;
}

/// Serving system of the same: band class and system identification.
at_result_t modem_t::css(const at_command_t& command, at_lines_t& lines) {
    if (command.form != at_form_t::read) {
        return cme_not_allowed;
    }
    lines.emplace_back(coverage_.on_cdma() && coverage_.in_service() ? "+CSS: CA,1" : "+CSS: Z,99999");
    return at_ok;
}

void modem_t::set_coverage(const coverage_t& coverage) {
    offered_coverage_ = coverage;
    update_coverage();
}

void modem_t::update_coverage() {
    constexpr std::string_view names[] = {"+CREG", "+CGREG", "+CEREG"};
    std::string before[std::size(names)];
    for (size_t i = 0; i < std::size(names); ++i) {
        before[i] = registration(names[i], reports_of(names[i]));
    }
    coverage_ = offered_coverage_;
    if (sim_.locked() || functionality_ != full_functionality) {
        coverage_.registration = registration_t::idle;
    }
    for (size_t i = 0; i < std::size(names); ++i) {
        const unsigned reports = reports_of(names[i]);
        const std::string now = registration(names[i], reports);
        if (reports > 0 && now != before[i]) {
            dialogue_.unsolicited(fmt::format("{}: {}", names[i], now));
        }
    }
}

/// In the host's character set, unless it is digits.
std::string modem_t::operator_name(size_t format) const {
    constexpr size_t numeric = 2;
    return format == numeric ? std::string(operator_names[format]) : to_host(operator_names[format], character_set_);
}

/// Operator, 7.3: chosen automatically; <mode> 3 sets the form of its name. What is in reach is the one there is.
at_result_t modem_t::cops(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::read) {
        lines.push_back(coverage_.in_service() ? fmt::format("+COPS: 0,{},\"{}\"{}", operator_format_,
                                                             operator_name(operator_format_), technology())
                                               : "+COPS: 0");
        return at_ok;
    }
    if (command.form == at_form_t::test) {
        constexpr std::string_view modes_and_formats = ",,(0,3),(0-2)";
        lines.push_back(coverage_.in_service()
                            ? fmt::format(R"(+COPS: (2,"{}","{}","{}"{}){})", operator_name(0), operator_name(1),
                                          operator_name(2), technology(), modes_and_formats)
                            : fmt::format("+COPS: {}", modes_and_formats));
        return at_ok;
    }
    const at_parameters_t parameters(command.value);
    const std::optional<unsigned> mode = parameters.number(0, 3);
    const std::optional<unsigned> format = parameters.number_or(1, 2, operator_format_);
    if (!mode || !format || (*mode != 0 && *mode != 3)) {
        return cme_incorrect_parameters;
    }
    operator_format_ = *format;
    return at_ok;
}

/// List of commands, 8.37.
at_result_t modem_t::clac(const at_command_t& /*command*/, at_lines_t& lines) {
    for (const command_t& known : commands) {
        lines.push_back(fmt::format("{}{}", known.name.starts_with('+') ? "" : "AT", known.name));
    }
    message_service_t::list_commands(lines);
    other_commands_t::list_commands(lines);
    return at_ok;
}

}  // namespace network
