#include "radio/sim.h"

#include <fmt/format.h>

#include <utility>

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

bool pin_tries_t::too_few() const {
    constexpr int fewest = 2;
    return left && *left < fewest;
}

std::string pin_tries_t::words() const {
    return fmt::format("{} {}", *left, *left == 1 ? "try" : "tries");
}

std::optional<pin_tries_t> ask_pin_tries(inquiry_t& inquiry) {
    const std::optional<reply_t> reply = inquiry.ask("AT+CPINR", "+CPINR:");
    if (!reply) {
        return std::nullopt;
    }
    for (const modem_line_t& line : reply->lines) {
        if (const std::optional<int> left = tries_left(line.text, "SIM PIN")) {
            return pin_tries_t{left};
        }
    }
    return pin_tries_t{};
}

// Some modems know nothing of a SIM, or tell nothing of it until it is there, or at all; others tell for a moment after
// the PIN what held before it. On CDMA a subscription needs no SIM.
bool sim_t::set_up(setup_inquiry_t& inquiry, bool needed) {
    bool entered = false;
    while (true) {
        const std::optional<reply_t> reply = inquiry.ask("AT+CPIN?", "+CPIN:");
        if (!reply) {
            return false;
        }
        const std::string state = state_of(*reply);
        if (needed && is_without_sim(reply->result) && inquiry.wait_for_sim_to_appear()) {
            continue;
        }
        if (state.empty() && !reply->ok()) {
            return !needed || !lacks_sim(reply->result) ||
                   inquiry.fail_modem("has no SIM that it can use: " + described(reply->result));
        }
        if (const step_t step = take_state(inquiry, state, entered); step != step_t::wait) {
            return step == step_t::ready;
        }
        if (!inquiry.wait_for_sim()) {
            return state.empty() || inquiry.fail(fmt::format("the SIM in the modem on {} is not ready after {} s",
                                                             options_.tty, value_of(limit_t::sim_ready)));
        }
    }
}

sim_t::step_t sim_t::take_state(setup_inquiry_t& inquiry, const std::string& state, bool& entered) {
    if (!state.empty() && !is_locked(state)) {
        tell_ready();
        return step_t::ready;
    }
    if (state.empty() || entered) {
        return step_t::wait;
    }
    if (state != "SIM PIN") {
        inquiry.fail(
            fmt::format("the SIM in the modem on {} is locked ({}): unlock it in a phone", options_.tty, shown(state)));
        return step_t::failed;
    }
    entered = enter_pin(inquiry);
    return entered ? step_t::wait : step_t::failed;
}

void sim_t::tell_ready() {
    if (std::exchange(pin_entered_, false)) {
        unmark_pins();
        warn("the SIM has taken its PIN");
    }
}

bool sim_t::enter_pin(setup_inquiry_t& inquiry) {
    if (options_.pin_file.empty()) {
        return inquiry.fail(fmt::format(
            "the SIM in the modem on {} wants its PIN: name a file that holds it by --pin-file", options_.tty));
    }
    const auto [pin, unreadable] = read_pin(options_.pin_file);
    if (!unreadable.empty()) {
        return inquiry.fail(unreadable);
    }
    if (!may_enter(inquiry, pin)) {
        return false;
    }
    // The mark comes first: whatever happens from then on, the value is not tried again unless the SIM is ready with
    // it.
    if (std::string error = mark_pin(pin); !error.empty()) {
        return inquiry.fail(std::move(error));
    }
    const reply_t reply =
        inquiry.link().exchange({.line = "AT+CPIN=\"" + pin + '"', .limit = limit_t::setting, .alias = "AT+CPIN=…"});
    pin_entered_ = reply.outcome != reply_t::outcome_t::error;
    return reply.ok() ||
           inquiry.fail(fmt::format(
               "the SIM did not accept the PIN in {}, which is not tried again ({})", options_.pin_file.native(),
               reply.outcome == reply_t::outcome_t::error ? described(reply.result) : "no answer"));
}

// Unless it may cost the SIM its last try.
bool sim_t::may_enter(setup_inquiry_t& inquiry, const std::string& pin) const {
    const std::string& file = options_.pin_file.native();
    if (pin_is_marked(pin)) {
        return inquiry.fail(
            fmt::format("the SIM did not accept the PIN in {} before, and it is not tried again: correct it there, or "
                        "remove {} if it is for another SIM",
                        file, pin_marks().native()));
    }
    const std::optional<pin_tries_t> tries = ask_pin_tries(inquiry);
    if (!tries) {
        return false;
    }
    if (tries->too_few()) {
        return inquiry.fail(fmt::format(
            "the SIM's PIN has {} left, too few to enter the one in {}: unlock it in a phone", tries->words(), file));
    }
    if (!tries->left && any_pin_is_marked()) {
        return inquiry.fail(fmt::format(
            "a PIN was not accepted before, and the modem does not tell how many tries are left, so that the one in {} "
            "is not entered: unlock the SIM in a phone, then remove {}",
            file, pin_marks().native()));
    }
    return true;
}

}  // namespace radio
