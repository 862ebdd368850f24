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

std::optional<std::string> at_dialogue_t::begin(const command_t& command) {
    if (!command_line(command.line) || !command_line(command.entry)) {
        return std::nullopt;
    }
    command_ = command;
    reply_ = {};
    reply_size_ = 0;
    in_progress_ = true;
    reply_waits_for_pdu_ = false;
    late_ok_follows_ = false;
    if (!command.entry.empty()) {
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
            reply_.entry_sent = true;
            out += command_.entry + ctrl_z;
        }
    }
    return out;
}

void at_dialogue_t::take_line(const std::string& text) {
    std::optional<final_result_t> result = final_result(text);
    if (in_progress_ && command_.any_form && !result) {
        result = numeric_result(text);
    }
    if (in_progress_ && result) {
        const bool wants_line = std::exchange(late_ok_follows_, false) || command_.needs_line;
        const bool too_early = (wants_line && reply_.lines.empty()) || waits_for_prompt();
        if (!too_early || result->kind != final_result_t::kind_t::ok) {
            reply_.result = *result;
            reply_.outcome =
                result->kind == final_result_t::kind_t::ok ? reply_t::outcome_t::ok : reply_t::outcome_t::error;
            in_progress_ = false;
            lexer_.expect_no_prompt();
        }
        return;
    }
    late_ok_follows_ = late_ok_follows_ || is_late(text);
    if (in_progress_ && is_reply(text)) {
        reply_.lines.push_back({text, {}});
        reply_size_ += text.size();
        reply_waits_for_pdu_ = command_.pdu_follows;
        delivery_is_latest_ = false;
    } else if (announces_pdu(text)) {
        if (delivery_) {
            unsolicited_.push_back(*std::exchange(delivery_, std::nullopt));
        }
        delivery_ = modem_line_t{text, {}};
        delivery_is_latest_ = true;
    } else if (is_echo(text)) {
        echoes_ = true;
    } else if (!result) {  // the result of a command that has been given up is nobody's
        unsolicited_.push_back({text, {}});
    }
}

void at_dialogue_t::take_pdu(const std::string& text) {
    if (in_progress_ && reply_.entry_sent && text == command_.entry) {
        return;  // echo
    }
    if (in_progress_ && is_reply(text)) {  // a number that a command asked for
        reply_.lines.push_back({text, {}});
        reply_size_ += text.size();
    } else if (delivery_ && (delivery_is_latest_ || !reply_waits_for_pdu_)) {
        delivery_->pdu = text;
        unsolicited_.push_back(*std::exchange(delivery_, std::nullopt));
        delivery_is_latest_ = false;
    } else if (in_progress_ && reply_waits_for_pdu_) {
        reply_.lines.back().pdu = text;
        reply_size_ += text.size();
        reply_waits_for_pdu_ = false;
    } else {
        unsolicited_.push_back({text, {}});
    }
}

bool at_dialogue_t::is_late(const std::string& text) const {
    return in_progress_ && command_.is_late && command_.is_late(text);
}

bool at_dialogue_t::is_reply(const std::string& text) const {
    if (text == command_.line || waits_for_prompt() || is_late(text)) {
        return false;
    }
    return std::ranges::any_of(command_.prefixes, [&](std::string_view prefix) { return text.starts_with(prefix); });
}

bool at_dialogue_t::waits_for_prompt() const {
    return !command_.entry.empty() && !reply_.entry_sent;
}

reply_t at_dialogue_t::end(reply_t::outcome_t outcome) {
    if (in_progress_) {
        reply_.outcome = outcome;
        in_progress_ = false;
        lexer_.expect_no_prompt();
    }
    reply_waits_for_pdu_ = false;
    return std::exchange(reply_, {});
}

std::deque<modem_line_t> at_dialogue_t::take_unsolicited() {
    return std::exchange(unsolicited_, {});
}

}  // namespace radio
