#include "radio/sim.h"

#include <fmt/format.h>

#include <utility>

#include "radio/diagnosis_words.h"
#include "radio/sim_pin.h"
#include "radio/sim_values.h"
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

// 3GPP TS 27.007 9.2.1: incorrect password, SIM PUK required. No other error is the SIM's verdict.
bool says_wrong(const final_result_t& result) {
    return result.kind == final_result_t::kind_t::cme_error && (result.code == 16 || result.code == 12);
}

std::string answer_of(const reply_t& reply) {
    return reply.outcome == reply_t::outcome_t::timeout ? "no answer" : described(reply.result);
}

// The ICCID; empty where the modem does not tell it, or not now.
std::string ask_card_identity(setup_inquiry_t& inquiry) {
    const std::vector<std::string> replies(card_replies().begin(), card_replies().end());
    for (const std::string_view question : card_questions()) {
        const reply_t reply =
            inquiry.link().exchange({.line = std::string(question), .limit = limit_t::setting, .prefixes = replies});
        if (reply.outcome == reply_t::outcome_t::timeout || reply.outcome == reply_t::outcome_t::lost) {
            break;
        }
        for (const modem_line_t& line : reply.lines) {
            if (std::optional<std::string> identity = card_identity(line.text)) {
                return *std::move(identity);
            }
        }
    }
    return {};
}

}  // namespace

bool pin_tries_t::too_few() const {
    constexpr int fewest = 2;
    return left && *left < fewest;
}

std::string pin_tries_t::words() const {
    return fmt::format("{} {}", *left, *left == 1 ? "try" : "tries");
}

// A modem refuses the questions that it does not know.
std::optional<pin_tries_t> ask_pin_tries(inquiry_t& inquiry) {
    for (const tries_question_t& question : tries_questions()) {
        const std::optional<reply_t> reply = inquiry.ask(std::string(question.line), question.reply);
        if (!reply) {
            return std::nullopt;
        }
        for (const modem_line_t& line : reply->lines) {
            if (const std::optional<int> left = tries_left(question, line.text)) {
                return pin_tries_t{left};
            }
        }
    }
    return pin_tries_t{};
}

// Some modems know nothing of a SIM, or tell nothing of it until it is there, or at all; others tell for a moment after
// the PIN what held before it. On CDMA a subscription needs no SIM.
bool sim_t::set_up(setup_inquiry_t& inquiry, bool needed) {
    entry_.reset();
    while (true) {
        const std::optional<reply_t> reply = inquiry.ask("AT+CPIN?", "+CPIN:");
        if (!reply) {
            return false;
        }
        const std::string state = state_of(*reply);
        note_state(*reply);
        if (needed && is_without_sim(reply->result) && inquiry.wait_for_sim_to_appear()) {
            continue;
        }
        if (state.empty() && !reply->ok()) {
            return !needed || !lacks_sim(reply->result) ||
                   inquiry.fail_modem("has no SIM that it can use: " + described(reply->result));
        }
        if (const step_t step = take_state(inquiry, state); step != step_t::wait) {
            return step == step_t::ready;
        }
        if (!inquiry.wait_for_sim()) {
            return state.empty() || inquiry.fail(fmt::format("the SIM in the modem on {} is not ready after {} s",
                                                             options_.tty, value_of(limit_t::sim_ready)));
        }
    }
}

void sim_t::note_number(setup_inquiry_t& inquiry) {
    std::string number;
    const reply_t reply =
        inquiry.link().exchange({.line = "AT+CNUM", .limit = limit_t::setting, .prefixes = {"+CNUM:"}});
    for (const modem_line_t& line : reply.lines) {
        number = number.empty() ? own_number(line.text).value_or(std::string()) : number;
    }
    board_.change([&](modem_state_t& now) { now.number = number; });
}

void sim_t::note_state(const reply_t& reply) {
    const std::optional<state_words_t> words = sim_words(reply);
    board_.change([&](modem_state_t& now) { now.sim = words ? words->words : reply.first(); });
}

sim_t::step_t sim_t::take_state(setup_inquiry_t& inquiry, const std::string& state) {
    if (state.empty()) {
        return step_t::wait;
    }
    if (!is_locked(state)) {
        if (any_pin_is_open() && forget_entered_pins(ask_card_identity(inquiry))) {
            warn("the SIM has taken its PIN");
        }
        return step_t::ready;
    }
    if (state == "SIM PIN") {
        return (entry_ ? may_wait(inquiry) : enter_pin(inquiry)) ? step_t::wait : step_t::failed;
    }
    if (state == "SIM PUK" && any_pin_is_open()) {
        settle_entered_pins(ask_card_identity(inquiry), 0);
    }
    inquiry.fail(
        fmt::format("the SIM in the modem on {} is locked ({}): unlock it in a phone", options_.tty, shown(state)));
    return step_t::failed;
}

bool sim_t::enter_pin(setup_inquiry_t& inquiry) {
    if (options_.pin_file.empty()) {
        return inquiry.fail(fmt::format(
            "the SIM in the modem on {} wants its PIN: name a file that holds it by --pin-file", options_.tty));
    }
    auto [pin, unreadable] = read_pin(options_.pin_file);
    if (!unreadable.empty()) {
        return inquiry.fail(std::move(unreadable));
    }
    const std::string card = ask_card_identity(inquiry);
    const std::optional<pin_tries_t> tries = ask_pin_tries(inquiry);
    if (!tries || !may_enter(inquiry, pin, card, *tries)) {
        return false;
    }
    if (std::string error = mark_entered_pin(pin, card, tries->left); !error.empty()) {
        return inquiry.fail(std::move(error));
    }
    const reply_t reply =
        inquiry.link().exchange({.line = "AT+CPIN=\"" + pin + '"', .limit = limit_t::setting, .alias = "AT+CPIN=…"});
    if (reply.outcome == reply_t::outcome_t::lost) {
        return inquiry.fail_modem("hung up while it got the SIM's PIN");
    }
    if (says_wrong(reply.result)) {
        reject_pin(pin, card);
        return inquiry.fail(fmt::format("the SIM did not accept the PIN in {}, which is not tried again ({})",
                                        options_.pin_file.native(), described(reply.result)));
    }
    entry_ = {std::move(pin), card, reply};
    return true;
}

bool sim_t::may_enter(setup_inquiry_t& inquiry, const std::string& pin, const std::string& card,
                      const pin_tries_t& tries) const {
    const std::string& file = options_.pin_file.native();
    settle_entered_pins(card, tries.left);
    if (pin_is_marked(pin, card)) {
        return inquiry.fail(
            fmt::format("the SIM did not accept the PIN in {} before, and it is not tried again: correct it there, or "
                        "remove {} if the SIM has that PIN by now",
                        file, pin_marks().native()));
    }
    if (tries.too_few()) {
        return inquiry.fail(fmt::format(
            "the SIM's PIN has {} left, too few to enter the one in {}: unlock it in a phone", tries.words(), file));
    }
    if (!tries.left && any_pin_is_marked(card)) {
        return inquiry.fail(fmt::format(
            "a PIN was not accepted before, and the modem does not tell how many tries are left, so that the one in {} "
            "is not entered: unlock the SIM in a phone, then remove {}",
            file, pin_marks().native()));
    }
    return tries.left || options_.pin_unchecked ||
           inquiry.fail(fmt::format(
               "the modem on {} does not tell how many tries the SIM's PIN has left, so that the one in {} is not "
               "entered: unlock the SIM in a phone, or have it entered all the same, once, by --pin-unchecked",
               options_.tty, file));
}

// After an entry that the SIM still does not show. Whoever said OK needs a moment; of any other answer the tries tell
// what it meant.
bool sim_t::may_wait(setup_inquiry_t& inquiry) {
    if (entry_->reply.ok()) {
        return true;
    }
    const std::optional<pin_tries_t> tries = ask_pin_tries(inquiry);
    if (!tries) {
        return false;
    }
    const entry_t entry = *std::exchange(entry_, std::nullopt);
    const std::string& file = options_.pin_file.native();
    settle_entered_pins(entry.card, tries->left);
    if (!pin_is_marked(entry.pin, entry.card)) {
        return not_ready_yet(entry.reply.result) ||
               inquiry.fail(fmt::format("the SIM has not looked at the PIN in {} ({}): {} are left as before", file,
                                        answer_of(entry.reply), tries->words()));
    }
    return inquiry.fail(
        tries->left ? fmt::format("the SIM did not accept the PIN in {}, which is not tried again ({}, {} left)", file,
                                  answer_of(entry.reply), tries->words())
                    : fmt::format("the modem on {} does not tell whether the SIM accepted the PIN in {} ({}), which is "
                                  "not tried again: unlock the SIM in a phone, then remove {}",
                                  options_.tty, file, answer_of(entry.reply), pin_marks().native()));
}

}  // namespace radio
