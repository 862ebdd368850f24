// Bringing the modem into the state that the rest relies on. What it offers is asked, then chosen from by preference.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

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
    announcement_ = {};
    acknowledges_ = false;
    link_keeping_ = 0;
    link_kept_ = false;
    circuit_ = {};
    packet_ = {};
    packet_5g_ = {};
}

std::string modem_t::set_up() {
    forget();
    sim_deadline_ = base::tick64() + milliseconds(limit_t::sim_ready);
    sim_wait_told_ = false;
    link_.begin();
    if (!link_.wake_modem()) {
        return fmt::format("no modem answers on {}: AT got no OK within {} seconds", options_.tty,
                           value_of(limit_t::probe));
    }
    ask("AT+CMEE=1");
    set_up_technology();
    if (std::string error = set_up_sim(); !error.empty()) {
        return error;
    }
    const bool pdu_mode = ask("AT+CMGF=0").ok();
    if (set_up_failure_.empty() && !pdu_mode) {
        return fmt::format("the modem on {} refuses PDU mode (AT+CMGF=0)", options_.tty);
    }
    set_up_memories();
    if (std::string error = set_up_announcement(); !error.empty()) {
        return error;
    }
    set_up_link_keeping();
    set_up_registration();
    return set_up_failure_.empty() ? std::string() : fmt::format("the modem on {} {}", options_.tty, set_up_failure_);
}

// A refusal is a modem's right; one that falls silent ends the set-up. After a start the SIM is busy for a while, and
// with it every command that needs it.
reply_t modem_t::ask(const std::string& line, const std::vector<std::string_view>& prefixes) {
    if (!set_up_failure_.empty()) {
        return {};
    }
    reply_t reply;
    do {
        reply = link_.exchange({.line = line, .limit = limit_t::setting, .prefixes = prefixes});
    } while (not_ready_yet(reply.result) && wait_for_sim());
    if (reply.outcome == reply_t::outcome_t::lost) {
        set_up_failure_ = "hung up during " + line;
    } else if (reply.outcome == reply_t::outcome_t::timeout) {
        set_up_failure_ = "does not answer " + line;
    } else if (not_ready_yet(reply.result)) {
        set_up_failure_ = fmt::format("is not ready after {} s: {} to {}", value_of(limit_t::sim_ready),
                                      described(reply.result), line);
    }
    return reply;
}

void modem_t::set_up_memories() {
    const std::vector<std::string> readable = readable_memories(ask("AT+CPMS=?", {"+CPMS:"}).first());
    memories_ = memories_to_read(readable, receiving_memory(ask("AT+CPMS?", {"+CPMS:"}).first()));
}

std::string modem_t::set_up_announcement() {
    if (!options_.announcement.empty()) {
        return set_up_users_announcement();
    }
    const std::vector<std::vector<int>> offered = offered_numbers(ask("AT+CNMI=?", {"+CNMI:"}).first());
    announcement_t choice = choose_announcement(offered, true);
    set_up_service(choice.way);
    if (choice.way == announcement_t::way_t::direct && !acknowledges_) {
        choice = choose_announcement(offered, false);
    }
    using enum announcement_t::way_t;
    // Modems that do not tell what they offer, or refuse what they told, take one of the two in the middle.
    const bool announced =
        (choice.way != none && announce(choice)) || announce({stored, "2,1"}) || announce({stored, "1,1"});
    if (!announced && choice.way == none && !choice.parameters.empty()) {
        announce(choice);
    }
    tell_announcement();
    return {};
}

std::string modem_t::set_up_users_announcement() {
    const std::optional<announcement_t> wanted = announcement_of(options_.announcement);
    if (!wanted) {
        return fmt::format("'{}' are no parameters of AT+CNMI: numbers between commas are, such as 2,1,0,0,0",
                           options_.announcement);
    }
    set_up_service(wanted->way);
    if (!announce(*wanted) && set_up_failure_.empty()) {
        return fmt::format("the modem on {} refuses the announcement {} (AT+CNMI)", options_.tty, wanted->parameters);
    }
    tell_announcement();
    return {};
}
bool modem_t::announce(const announcement_t& choice) {
    if (!ask("AT+CNMI=" + choice.parameters).ok()) {
        return false;
    }
    announcement_ = choice;
    return true;
}

// Once, and again when it is another.
void modem_t::tell_announcement() {
    using enum announcement_t::way_t;
    const std::string text = announcement_.way == stored   ? "new messages are stored and announced"
                             : announcement_.way == direct ? "new messages are delivered directly"
                                                           : fmt::format("new messages are looked for every {} s",
                                                                         value_of(limit_t::listing_again));
    if (set_up_failure_.empty() && text != std::exchange(told_announcement_, text)) {
        warn(announcement_.parameters.empty() ? text : fmt::format("{} (AT+CNMI={})", text, announcement_.parameters));
    }
}

// A modem that misses an acknowledgement (3GPP TS 27.005 3.4.4) announces nothing any more, nor does one that restarts
// without a hang-up, which has lost every other setting, too.
void modem_t::check_announcement() {
    if (announcement_.way == announcement_t::way_t::none || lost() || link_.ending()) {
        return;
    }
    const reply_t reply = link_.exchange({.line = "AT+CNMI?", .limit = limit_t::setting, .prefixes = {"+CNMI:"}});
    const std::vector<value_t> now = values_of(reply.first());
    if (now.size() > 1 && now[1].text == "0") {
        warn("the modem has stopped to announce new messages; it is set up again");
        if (const std::string error = connect(); !error.empty() && !link_.ending()) {
            warn(error);
        }
    }
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

// 1 keeps the link until the next pause, 2 until it is switched off (3GPP TS 27.005 3.5.6).
void modem_t::set_up_link_keeping() {
    const reply_t reply = ask("AT+CMMS=?", {"+CMMS:"});
    const std::vector<std::vector<int>> offered = offered_numbers(reply.first());
    if (reply.ok()) {
        link_keeping_ = offered.empty() || holds(offered[0], 1) ? 1 : holds(offered[0], 2) ? 2 : 0;
    }
}

}  // namespace radio
