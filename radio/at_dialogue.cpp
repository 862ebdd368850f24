#include "radio/at_dialogue.h"

#include <algorithm>
#include <utility>

namespace radio {

namespace {

constexpr char ctrl_z = 0x1A;

// Unsolicited lines that a PDU line follows, 3GPP TS 27.005 3.4.1.
bool announces_pdu(std::string_view line) {
    return line.starts_with("+CMT:") || line.starts_with("+CDS:") || line.starts_with("+CBM:");
}

// Of a command line, perhaps with its first octets lost; or of a prompt's sign, when nobody waits for it any more.
bool is_echo(std::string_view line) {
    return line.starts_with("AT") || line.starts_with('>') || line.find("+CPIN=") != std::string_view::npos;
}

}  // namespace

reply_shape_t shape_of_answer(std::string_view line) {
    return line.ends_with('?') ? reply_shape_t::line : reply_shape_t::result;
}

std::optional<std::string> at_dialogue_t::begin(const command_t& command) {
    if (!command_line(command.line) || !command_line(command.entry)) {
        return std::nullopt;
    }
    command_ = command;
    reply_ = {};
    reply_size_ = 0;
    in_progress_ = true;
    doubtful_.reset();
    late_ok_follows_ = false;
    expect_no_pdu(header_t::reply);
    if (command.shape == reply_shape_t::entry) {
        lexer_.expect_prompt();
    }
    return command.line + '\r';
}

std::string at_dialogue_t::feed(std::string_view octets) {
    std::string out;
    for (const token_t& token : lexer_.feed(octets)) {
        if (token.kind == token_t::kind_t::line) {
            take_line(token.text);
        } else if (token.kind == token_t::kind_t::pdu) {
            take_pdu(token.text);
        } else {
            doubtful_.reset();
            reply_.entry_sent = true;
            out += command_.entry + ctrl_z;
        }
    }
    return out;
}

void at_dialogue_t::take_line(const std::string& text) {
    if (const std::optional<final_result_t> result = result_in(text)) {
        take_result(*result);
        return;
    }
    late_ok_follows_ = late_ok_follows_ || is_late(text);
    if (is_reply(text)) {
        take_reply_line(text);
    } else if (announces_pdu(text)) {
        take_delivery(text);
    } else if (is_echo(text)) {
        echoes_ += text == command_.line ? 1 : 0;
    } else {
        unsolicited_.push_back({text, {}});
    }
}

std::optional<final_result_t> at_dialogue_t::result_in(const std::string& text) const {
    const std::optional<final_result_t> result = final_result(text);
    const bool may_be_digit = in_progress_ && command_.shape == reply_shape_t::plain_result;
    return result || !may_be_digit ? result : numeric_result(text);
}

// That of a command that has been given up is nobody's; an OK before the prompt can be no other.
void at_dialogue_t::take_result(const final_result_t& result) {
    const bool is_ok = result.kind == final_result_t::kind_t::ok;
    const bool is_late = is_ok && (std::exchange(late_ok_follows_, false) || waits_for_prompt());
    if (!in_progress_ || is_late) {
        return;
    }
    const bool wants_line = command_.shape == reply_shape_t::line || command_.shape == reply_shape_t::entry;
    if (waits_for_prompt() || (is_ok && wants_line && reply_.lines.empty())) {
        doubtful_ = result;
    } else {
        finish(result);
    }
}

void at_dialogue_t::finish(const final_result_t& result) {
    reply_.result = result;
    reply_.outcome = result.kind == final_result_t::kind_t::ok ? reply_t::outcome_t::ok : reply_t::outcome_t::error;
    in_progress_ = false;
    doubtful_.reset();
    lexer_.expect_no_prompt();
}

void at_dialogue_t::believe() {
    if (in_progress_ && doubtful_) {
        finish(final_result_t(*doubtful_));
    }
}

void at_dialogue_t::take_reply_line(const std::string& text) {
    doubtful_.reset();
    reply_.lines.push_back({text, {}});
    reply_size_ += text.size();
    if (command_.shape == reply_shape_t::pdus) {
        expect_pdu(header_t::reply);
    }
}

void at_dialogue_t::take_delivery(const std::string& text) {
    if (delivery_) {
        unsolicited_.push_back(*std::exchange(delivery_, std::nullopt));
    }
    delivery_ = modem_line_t{text, {}};
    expect_pdu(header_t::delivery);
}

void at_dialogue_t::expect_pdu(header_t header) {
    expect_no_pdu(header);
    headers_.push_back(header);
}

void at_dialogue_t::expect_no_pdu(header_t header) {
    std::erase(headers_, header);
}

void at_dialogue_t::take_pdu(const std::string& text) {
    if (in_progress_ && reply_.entry_sent && text == command_.entry) {
        return;  // echo
    }
    if (is_reply(text)) {  // a number that a command asked for
        take_reply_line(text);
        return;
    }
    if (headers_.empty()) {
        unsolicited_.push_back({text, {}});
        return;
    }
    const header_t header = headers_.back();
    headers_.pop_back();
    if (header == header_t::delivery) {
        delivery_->pdu = text;
        unsolicited_.push_back(*std::exchange(delivery_, std::nullopt));
    } else {
        reply_.lines.back().pdu = text;
        reply_size_ += text.size();
    }
}

bool at_dialogue_t::is_late(const std::string& text) const {
    return in_progress_ && command_.is_late && command_.is_late(text);
}

bool at_dialogue_t::is_reply(const std::string& text) const {
    return in_progress_ && text != command_.line && !waits_for_prompt() && !is_late(text) &&
           std::ranges::any_of(command_.prefixes, [&](const std::string& prefix) { return text.starts_with(prefix); });
}

bool at_dialogue_t::waits_for_prompt() const {
    return in_progress_ && command_.shape == reply_shape_t::entry && !reply_.entry_sent;
}

reply_t at_dialogue_t::end(reply_t::outcome_t outcome) {
    if (in_progress_) {
        reply_.outcome = outcome;
        in_progress_ = false;
        lexer_.expect_no_prompt();
    }
    doubtful_.reset();
    expect_no_pdu(header_t::reply);
    return std::exchange(reply_, {});
}

std::deque<modem_line_t> at_dialogue_t::take_unsolicited() {
    return std::exchange(unsolicited_, {});
}

}  // namespace radio
