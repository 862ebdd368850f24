// Registration and access technology, 3GPP TS 27.007 7.2, 7.3, 10.1.22 and 10.1.47, as the radio's system type.
#include <utility>

#include "radio/modem.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr int access_gsm = 0;
constexpr int access_lte = 7;
constexpr int access_nr = 11;

}  // namespace

void modem_t::take_registration(const std::string& line) {
    const std::optional<registration_t> told = registration(line);
    if (!told) {
        warn("odd registration line: " + line);
        return;
    }
    registration_t& kept = kept_of(line);
    kept = *told;
    if (tells_service_ || (&kept == &circuit_ && told->registered() && !told->access)) {
        // The technology has to be asked for; a modem that tells of its registration at each question, once.
        if (!std::exchange(registration_asked_, true)) {
            post([this] { query_registration(); });
        }
    } else {
        publish_system_type();
    }
}

registration_t& modem_t::kept_of(std::string_view line) {
    return line.starts_with("+CREG:") ? circuit_ : line.starts_with("+CEREG:") ? packet_ : packet_5g_;
}

// 2 adds the access technology, 1 only tells changes.
void modem_t::set_up_registration() {
    tells_circuit_ = ask("AT+CREG=2").ok() || ask("AT+CREG=1").ok() || (only_cdma_ && ask("AT+CREG?", {"+CREG:"}).ok());
    tells_packet_ = ask("AT+CEREG=2").ok() || ask("AT+CEREG=1").ok();
    tells_5g_ = ask("AT+C5GREG=2").ok() || ask("AT+C5GREG=1").ok();
    if (set_up_failure_.empty()) {
        query_registration();
        if (tty_.descriptor() < 0) {
            set_up_failure_ = "hung up while it was asked for its registration";
        }
    }
}

// Only a modem that does not tell GSM alone is asked what a GSM modem would not know.
void modem_t::set_up_technology() {
    const auto [gsm, cdma] = capabilities(ask("AT+GCAP", {"+GCAP:"}).first());
    only_cdma_ = cdma && !gsm;
    technology_ = only_cdma_ ? technology_t::cdma : technology_t::gsm;
    tells_service_ = (cdma || !gsm) && cdma_service(ask("AT+CAD?", {"+CAD:"}).first()).has_value();
}

// A modem for both kinds of network is on that which serves it.
void modem_t::query_technology() {
    constexpr int on_cdma = 1;
    if (tells_service_ && !only_cdma_) {
        const reply_t reply = link_.exchange({.line = "AT+CAD?", .limit = limit_t::query, .prefixes = {"+CAD:"}});
        technology_ = cdma_service(reply.first()) == on_cdma ? technology_t::cdma : technology_t::gsm;
    }
}

void modem_t::query_registration() {
    query_technology();
    if (tells_circuit_) {
        query_one("AT+CREG?", "+CREG:");
    }
    if (tells_packet_) {
        query_one("AT+CEREG?", "+CEREG:");
    }
    if (tells_5g_) {
        query_one("AT+C5GREG?", "+C5GREG:");
    }
    if (!tells_circuit_ && technology_ == technology_t::cdma) {
        query_serving_system();
    }
    if (circuit_.registered() && !circuit_.access && technology_ == technology_t::gsm) {
        const reply_t reply = link_.exchange({.line = "AT+COPS?", .limit = limit_t::query, .prefixes = {"+COPS:"}});
        circuit_.access = operator_access(reply.first()).value_or(access_gsm);
    }
    registration_asked_ = false;
    publish_system_type();
}

// What a CDMA modem without +CREG tells: that it is served, and by which system.
void modem_t::query_serving_system() {
    constexpr int registered = 1;
    const reply_t service = link_.exchange({.line = "AT+CAD?", .limit = limit_t::query, .prefixes = {"+CAD:"}});
    const reply_t system = link_.exchange({.line = "AT+CSS?", .limit = limit_t::query, .prefixes = {"+CSS:"}});
    const bool served = tells_service_ ? cdma_service(service.first()) == 1 : !system.lines.empty();
    const bool known = system.lines.empty() || has_serving_system(system.first());
    circuit_ = {served && known ? registered : 0, std::nullopt};
}

// A line that came by itself among the reply lines is as true as the reply.
void modem_t::query_one(const std::string& command, const char* prefix) {
    registration_t& kept = kept_of(prefix);
    const reply_t reply = link_.exchange({.line = command, .limit = limit_t::query, .prefixes = {prefix}});
    if (!reply.ok()) {
        kept = {};
    }
    for (const modem_line_t& line : reply.lines) {
        kept = registration(line.text).value_or(kept);
    }
}

void modem_t::publish_system_type() {
    DWORD type = RIL_SYSTEMTYPE_NONE;
    // A modem that takes no requests has no network to offer, whatever it says while it is being set up.
    if (!lost() && technology_ == technology_t::cdma) {
        type = circuit_.registered() ? RIL_SYSTEMTYPE_1XRTTPACKET : RIL_SYSTEMTYPE_NONE;
    } else if (!lost() && circuit_.registered()) {
        type = system_type_of_access(circuit_.access.value_or(access_gsm));
    } else if (!lost() && packet_.registered()) {
        type = system_type_of_access(packet_.access.value_or(access_lte));
    } else if (!lost() && packet_5g_.registered()) {
        type = system_type_of_access(packet_5g_.access.value_or(access_nr));
    }
    if (type == system_type_) {
        return;
    }
    system_type_ = type;
    const session_pointer_t open = session();
    if (open && (open->classes & RIL_NCLASS_NETWORK)) {
        callbacks_.system_changed(open, type);
    }
}

}  // namespace radio
