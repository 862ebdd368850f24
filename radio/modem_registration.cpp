// Registration and access technology, 3GPP TS 27.007 7.2, 7.3 and 10.1.22, as the radio's system type.
#include "radio/modem.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr int access_gsm = 0;
constexpr int access_lte = 7;

}  // namespace

void modem_t::take_registration(const std::string& line) {
    const std::optional<registration_t> told = registration(line);
    if (!told) {
        warn("odd registration line: " + line);
        return;
    }
    const bool packet = line.starts_with("+CEREG:");
    (packet ? packet_ : circuit_) = *told;
    if (!packet && told->registered() && !told->access) {
        post([this] { query_registration(); });  // the access technology has to be asked for
    } else {
        publish_system_type();
    }
}

void modem_t::query_registration() {
    if (tells_circuit_) {
        query_one("AT+CREG?", "+CREG:");
    }
    if (tells_packet_) {
        query_one("AT+CEREG?", "+CEREG:");
    }
    if (circuit_.registered() && !circuit_.access) {
        const reply_t reply = link_.exchange({.line = "AT+COPS?", .limit = limit_t::query, .prefixes = {"+COPS:"}});
        circuit_.access = operator_access(reply.first()).value_or(access_gsm);
    }
    publish_system_type();
}

// A line that came by itself among the reply lines is as true as the reply.
void modem_t::query_one(const std::string& command, const char* prefix) {
    registration_t& kept = command == "AT+CREG?" ? circuit_ : packet_;
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
    if (!lost() && circuit_.registered()) {
        type = system_type_of_access(circuit_.access.value_or(access_gsm));
    } else if (!lost() && packet_.registered()) {
        type = system_type_of_access(packet_.access.value_or(access_lte));
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
