// Bringing the modem into the state that the rest relies on. What it offers is asked, then chosen from by preference.
#include <fmt/format.h>

#include <algorithm>

#include "radio/modem.h"
#include "radio/warning.h"

namespace radio {

namespace {

bool holds(const std::vector<int>& numbers, int value) {
    return std::ranges::find(numbers, value) != numbers.end();
}

}  // namespace

// What an earlier set-up found. What was handed over and not deleted yet is still known.
void modem_t::forget() {
    set_up_failure_.clear();
    memories_.clear();
    selected_memory_.clear();
    acknowledges_ = false;
    link_kept_ = false;
    circuit_ = {};
    packet_ = {};
}

std::string modem_t::set_up() {
    forget();
    link_.begin();
    if (!link_.wake_modem()) {
        return fmt::format("no modem answers on {}: AT got no OK within {} seconds", options_.tty,
                           value_of(limit_t::probe));
    }
    ask("ATE0");
    ask("AT+CMEE=1");
    const std::string pin = ask("AT+CPIN?", {"+CPIN:"}).first();
    if (pin.find("PIN") != std::string::npos && (pin.ends_with(" PIN") || pin.ends_with(" PUK"))) {
        return fmt::format("the SIM in the modem on {} is locked ({}): unlock it first", options_.tty, shown(pin));
    }
    const bool pdu_mode = ask("AT+CMGF=0").ok();
    if (set_up_failure_.empty() && !pdu_mode) {
        return fmt::format("the modem on {} refuses PDU mode (AT+CMGF=0)", options_.tty);
    }
    set_up_memories();
    set_up_announcement();
    keeps_link_ = ask("AT+CMMS=?", {"+CMMS:"}).ok();
    set_up_registration();
    return set_up_failure_.empty() ? std::string() : fmt::format("the modem on {} {}", options_.tty, set_up_failure_);
}

// A refusal is a modem's right; one that falls silent ends the set-up.
reply_t modem_t::ask(const std::string& line, std::vector<std::string_view> prefixes) {
    if (!set_up_failure_.empty()) {
        return {};
    }
    reply_t reply = link_.exchange({.line = line, .limit = limit_t::setting, .prefixes = std::move(prefixes)});
    if (reply.outcome == reply_t::outcome_t::lost) {
        set_up_failure_ = "hung up during " + line;
    } else if (reply.outcome == reply_t::outcome_t::timeout) {
        set_up_failure_ = "does not answer " + line;
    }
    return reply;
}

void modem_t::set_up_memories() {
    const std::vector<std::string> readable = readable_memories(ask("AT+CPMS=?", {"+CPMS:"}).first());
    memories_ = memories_to_read(readable, receiving_memory(ask("AT+CPMS?", {"+CPMS:"}).first()));
}

void modem_t::set_up_announcement() {
    const announcement_t offered = choose_announcement(offered_numbers(ask("AT+CNMI=?", {"+CNMI:"}).first()));
    set_up_service(offered.way);
    if (offered.way != announcement_t::way_t::none && announce(offered)) {
        return;
    }
    // Modems that do not tell what they offer, or refuse what they told, take one of these.
    for (const char* parameters : {"2,1", "1,1"}) {
        if (announce({announcement_t::way_t::stored, parameters})) {
            return;
        }
    }
    if (set_up_failure_.empty()) {
        warn(fmt::format("the modem announces no new messages; they are looked for every {} seconds",
                         value_of(limit_t::listing_again)));
    }
}

bool modem_t::announce(const announcement_t& choice) {
    return ask("AT+CNMI=" + choice.parameters).ok();
}

// Phase 2+ makes direct delivery wait for our acknowledgement; stored messages need none (3GPP TS 27.005 3.2.1, 3.4.4).
void modem_t::set_up_service(announcement_t::way_t way) {
    const std::vector<std::vector<int>> offered = offered_numbers(ask("AT+CSMS=?", {"+CSMS:"}).first());
    const int wanted = way == announcement_t::way_t::direct ? 1 : 0;
    if (offered.empty() || offered[0].empty()) {
        return;
    }
    const int service = holds(offered[0], wanted) ? wanted : offered[0].front();
    acknowledges_ = ask(fmt::format("AT+CSMS={}", service), {"+CSMS:"}).ok() && service == 1;
}

// 2 adds the access technology, 1 only tells changes.
void modem_t::set_up_registration() {
    tells_circuit_ = ask("AT+CREG=2").ok() || ask("AT+CREG=1").ok();
    tells_packet_ = ask("AT+CEREG=2").ok() || ask("AT+CEREG=1").ok();
    if (set_up_failure_.empty()) {
        query_registration();
    }
}

}  // namespace radio
