// The SIM, ready to be used: 3GPP TS 27.007 8.3. A PIN is entered at most once for each value; a PUK never.
#include <fmt/format.h>

#include <utility>

#include "radio/modem.h"
#include "radio/sim_pin.h"
#include "radio/warning.h"

namespace radio {

namespace {

// 3GPP TS 27.007 8.3; some modems put it in quotation marks.
std::string state_of(const reply_t& reply) {
    const std::vector<value_t> values = values_of(reply.first());
    return values.empty() ? std::string() : values[0].text;
}

// The codes that a SIM is used without concern other things.
bool is_locked(const std::string& state) {
    return state.ends_with(" PIN") || state.ends_with(" PUK");
}

}  // namespace

// Some modems know nothing of a SIM, or tell nothing of it until it is there, or at all; others tell for a moment after
// the PIN what held before it. On CDMA a subscription needs no SIM.
std::string modem_t::set_up_sim() {
    bool entered = false;
    while (true) {
        const reply_t reply = ask("AT+CPIN?", {"+CPIN:"});
        const std::string state = state_of(reply);
        if (state.empty() && !reply.ok()) {
            return lacks_sim(reply.result) && !only_cdma_
                       ? fmt::format("the modem on {} has no SIM that it can use: {}", options_.tty,
                                     described(reply.result))
                       : std::string();
        }
        if (!state.empty() && !is_locked(state)) {
            if (std::exchange(pin_entered_, false)) {
                unmark_pins();
                warn("the SIM has taken its PIN");
            }
            return {};
        }
        if (state == "SIM PIN" && !entered) {
            if (std::string error = enter_pin(); !error.empty()) {
                return error;
            }
            entered = true;
        } else if (!state.empty() && !entered) {
            return fmt::format("the SIM in the modem on {} is locked ({}): unlock it in a phone", options_.tty,
                               shown(state));
        }
        if (!wait_for_sim()) {
            if (reply.ok() && state.empty()) {
                return {};
            }
            return fmt::format("the SIM in the modem on {} is not ready after {} s", options_.tty,
                               value_of(limit_t::sim_ready));
        }
    }
}

// False when there is no time left.
bool modem_t::wait_for_sim() {
    if (!std::exchange(sim_wait_told_, true)) {
        warn(fmt::format("the SIM is not ready yet; it is waited for, {} s at most", value_of(limit_t::sim_ready)));
    }
    return base::tick64() < sim_deadline_ && link_.pause(limit_t::probe_again);
}

std::string modem_t::enter_pin() {
    if (options_.pin_file.empty()) {
        return fmt::format("the SIM in the modem on {} wants its PIN: name a file that holds it by --pin-file",
                           options_.tty);
    }
    const auto [pin, unreadable] = read_pin(options_.pin_file);
    if (!unreadable.empty()) {
        return unreadable;
    }
    if (std::string reason = why_not_enter(pin); !reason.empty()) {
        return reason;
    }
    // The mark comes first: whatever happens from then on, the value is not tried again unless the SIM is ready with
    // it.
    if (std::string error = mark_pin(pin); !error.empty()) {
        return error;
    }
    const reply_t reply =
        link_.exchange({.line = "AT+CPIN=\"" + pin + '"', .limit = limit_t::setting, .alias = "AT+CPIN=…"});
    pin_entered_ = reply.outcome != reply_t::outcome_t::error;
    if (!reply.ok()) {
        return fmt::format("the SIM did not accept the PIN in {}, which is not tried again ({})",
                           options_.pin_file.native(),
                           reply.outcome == reply_t::outcome_t::error ? described(reply.result) : "no answer");
    }
    return {};
}

// What may cost the SIM its last try. Empty when nothing stands against it.
std::string modem_t::why_not_enter(const std::string& pin) {
    const std::string& file = options_.pin_file.native();
    if (pin_is_marked(pin)) {
        return fmt::format(
            "the SIM did not accept the PIN in {} before, and it is not tried again: correct it there, or "
            "remove {} if it is for another SIM",
            file, pin_marks().native());
    }
    const std::optional<int> left = pin_tries();
    if (!set_up_failure_.empty()) {
        return fmt::format("the modem on {} {}", options_.tty, set_up_failure_);
    }
    constexpr int fewest_tries = 2;
    if (left && *left < fewest_tries) {
        return fmt::format("the SIM's PIN has {} {} left, too few to enter the one in {}: unlock it in a phone", *left,
                           *left == 1 ? "try" : "tries", file);
    }
    if (!left && any_pin_is_marked()) {
        return fmt::format(
            "a PIN was not accepted before, and the modem does not tell how many tries are left, so that the one in {} "
            "is not entered: unlock the SIM in a phone, then remove {}",
            file, pin_marks().native());
    }
    return {};
}

// As far as the modem tells, 3GPP TS 27.007 8.65.
std::optional<int> modem_t::pin_tries() {
    const reply_t reply = ask("AT+CPINR", {"+CPINR:"});
    for (const modem_line_t& line : reply.lines) {
        if (const std::optional<int> left = tries_left(line.text, "SIM PIN")) {
            return left;
        }
    }
    return std::nullopt;
}

}  // namespace radio
