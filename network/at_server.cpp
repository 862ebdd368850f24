#include "network/at_server.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "base/clock.h"

namespace network {

namespace {

constexpr char carriage_return = '\r';
constexpr char line_feed = '\n';
constexpr char backspace = '\b';
constexpr char ctrl_z = '\x1a';
constexpr char escape = '\x1b';

char to_upper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

bool is_control(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

/// Spaces outside quotes mean nothing, V.250 5.3 and 5.4.
std::string without_spaces(std::string_view line) {
    std::string kept;
    bool quoted = false;
    for (const char c : line) {
        quoted ^= c == '"';
        if (c != ' ' || quoted) {
            kept += c;
        }
    }
    return kept;
}

std::string framed(std::string_view text, bool numeric) {
    return fmt::format("{}{}\r\n", numeric ? "" : "\r\n", text);
}

}  // namespace

at_server_t::at_server_t(at_commands_t& commands, const faults_t& faults) : commands_(commands), faults_(faults) {}

void at_server_t::take(char octet) {
    if (entering_text_) {
        take_text(octet);
    } else {
        take_line(octet);
    }
}

void at_server_t::take_line(char octet) {
    if (line_.size() < 2 && !take_prefix(octet)) {
        return;
    }
    echo(octet);
    if (octet == carriage_return) {
        complete();
    } else if (octet == backspace) {
        if (line_.size() > 2) {
            line_.pop_back();
        }
    } else if (!is_control(octet)) {
        append(octet);
    }
}

void at_server_t::echo(char octet) {
    if (settings_.echo || faults_.echo == echo_t::always) {
        output_ += octet;
    }
}

/// V.250 5.2.1: "AT" or "at" begins a line; V.250 5.2.4: "A/" repeats the last one at once. Nothing is echoed before
/// the "A": a host whose tty echoes what the modem says must not keep the two of them busy for ever.
bool at_server_t::take_prefix(char octet) {
    if (line_.empty()) {
        return to_upper(octet) == 'A';
    }
    if (octet == '/') {
        line_ = last_line_;
        complete();
        return false;
    }
    if (to_upper(octet) != 'T') {
        line_.clear();
        return take_prefix(octet);
    }
    return true;
}

void at_server_t::append(char octet) {
    if (line_.size() < max_line) {
        line_ += octet;
    } else {
        too_long_ = true;
    }
}

void at_server_t::complete() {
    if (faults_.late_answers > 0) {
        answer_at_ = base::tick64() + faults_.late_answers;
    } else {
        answer();
    }
}

void at_server_t::answer() {
    if (entering_text_) {
        end_text();
    } else {
        end_line();
    }
}

void at_server_t::end_line() {
    const std::string line = std::exchange(line_, {});
    if (std::exchange(too_long_, false)) {
        finish(at_error);
        return;
    }
    last_line_ = line;
    run(without_spaces(std::string_view(line).substr(std::min<size_t>(2, line.size()))));
}

/// The commands of a line in their order, up to the first that fails; one result for all of them.
void at_server_t::run(std::string_view commands) {
    while (!commands.empty()) {
        const std::optional<at_command_t> command = next_command(commands);
        const at_result_t result = command ? execute(*command) : at_error;
        if (result.kind == at_result_t::kind_t::enter_text || result.kind == at_result_t::kind_t::enter_lines) {
            after_text_ = commands;
            entering_text_ = true;
            entering_lines_ = result.kind == at_result_t::kind_t::enter_lines;
            begin_prompt();
            return;
        }
        if (result.kind != at_result_t::kind_t::ok) {
            finish(result);
            return;
        }
    }
    finish(at_ok);
}

void at_server_t::begin_prompt() {
    if (faults_.late_prompt > 0) {
        prompt_at_ = base::tick64() + faults_.late_prompt;
    } else {
        output_ += faults_.prompt;
    }
}

std::optional<uint64_t> at_server_t::deadline() const {
    constexpr uint64_t never = UINT64_MAX;
    const uint64_t earliest = std::min({prompt_at_.value_or(never), answer_at_.value_or(never),
                                        late_results_.empty() ? never : late_results_.front().at});
    return earliest == never ? std::nullopt : std::optional(earliest);
}

void at_server_t::pass_deadline() {
    const uint64_t now = base::tick64();
    while (!late_results_.empty() && late_results_.front().at <= now) {
        (entering_text_ ? held_ : output_) += late_results_.front().octets;
        late_results_.pop_front();
    }
    if (prompt_at_ && *prompt_at_ <= now) {
        prompt_at_.reset();
        output_ += faults_.prompt;
    }
    if (answer_at_ && *answer_at_ <= now) {
        answer_at_.reset();
        answer();
    }
}

void at_server_t::take_text(char octet) {
    echo(octet);
    if (octet == ctrl_z) {
        complete();
    } else if (octet == escape) {
        line_.clear();
        too_long_ = false;
        after_text_.clear();
        finish(at_ok);
    } else if (octet == backspace) {
        if (!line_.empty()) {
            line_.pop_back();
        }
    } else if (octet != carriage_return && octet != line_feed) {
        append(octet);
    } else if (entering_lines_) {
        take_line_end(octet);
    }
}

/// Each further line is prompted for as the first is, 3GPP TS 27.005 3.5.1. A line feed before all text is still of the
/// command line.
void at_server_t::take_line_end(char octet) {
    if (octet == carriage_return || !line_.empty()) {
        append(octet);
    }
    if (octet == carriage_return) {
        output_ += faults_.prompt;
    }
}

void at_server_t::end_text() {
    // A text that was too long is none that a command could want: it is handed over as one that no command accepts.
    const std::string text = std::exchange(too_long_, false) ? std::string() : line_;
    line_.clear();
    const std::string rest = std::exchange(after_text_, {});
    at_lines_t lines;
    const at_result_t result = commands_.execute_text(text, lines);
    if (faults_.late_results > 0) {
        late_results_.push_back({base::tick64() + faults_.late_results, lines_octets(lines) + result_octets(result)});
        finish(at_nothing);
        return;
    }
    output_ += lines_octets(lines);
    if (result.kind == at_result_t::kind_t::ok && !rest.empty()) {
        entering_text_ = false;
        run(rest);
    } else {
        finish(result);
    }
}

void at_server_t::finish(at_result_t result) {
    output_ += result_octets(result);
    entering_text_ = false;
    output_ += std::exchange(held_, {});
}

std::string at_server_t::result_octets(at_result_t result) const {
    if (faults_.errors == error_form_t::plain && result.code != 0) {
        result = at_error;
    }
    const std::string text = result_text(result, faults_.errors.value_or(settings_.error_form), settings_.numeric);
    if (text.empty() || settings_.quiet) {
        return {};
    }
    const bool digit = settings_.numeric && text.size() == 1;
    return digit ? text + "\r" : framed(text, settings_.numeric);
}

at_result_t at_server_t::execute(const at_command_t& command) {
    at_lines_t lines;
    const std::optional<at_result_t> own = execute_own(command, lines);
    const at_result_t result = own ? *own : commands_.execute(command, lines);
    output_ += lines_octets(lines);
    return result;
}

std::optional<at_result_t> at_server_t::execute_own(const at_command_t& command, at_lines_t& lines) {
    const std::string& name = command.name;
    if (name == "E" || name == "V" || name == "Q") {
        const std::optional<unsigned> value = at_parameters_t(command.value).number_or(0, 1, 0);
        if (!value) {
            return at_error;
        }
        (name == "E"   ? settings_.echo
         : name == "Q" ? settings_.quiet
                       : settings_.numeric) = name == "V" ? *value == 0 : *value == 1;
        return at_ok;
    }
    if (name == "Z" || name == "&F") {
        reset_settings();
        commands_.reset_settings();
        return at_ok;
    }
    if (name == "S3" || name == "S4" || name == "S5") {
        return execute_register(command, lines);
    }
    if (name == "+CMEE") {
        return execute_cmee(command, lines);
    }
    return std::nullopt;
}

/// The characters that end a line, follow it and edit it, V.250 6.2.1 to 6.2.3: fixed at their defaults.
at_result_t at_server_t::execute_register(const at_command_t& command, at_lines_t& lines) {
    const unsigned fixed = command.name == "S3" ? 13 : command.name == "S4" ? 10 : 8;
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("{:03}", fixed));
        return at_ok;
    }
    return at_parameters_t(command.value).number(0, 127) == fixed ? at_ok : at_error;
}

at_result_t at_server_t::execute_cmee(const at_command_t& command, at_lines_t& lines) {
    if (command.form == at_form_t::test) {
        lines.emplace_back("+CMEE: (0-2)");
        return at_ok;
    }
    if (command.form == at_form_t::read) {
        lines.push_back(fmt::format("+CMEE: {}", static_cast<unsigned>(settings_.error_form)));
        return at_ok;
    }
    const std::optional<unsigned> form = at_parameters_t(command.value).number_or(0, 2, 0);
    if (!form) {
        return cme_incorrect_parameters;
    }
    settings_.error_form = static_cast<error_form_t>(*form);
    return at_ok;
}

void at_server_t::unsolicited(std::string_view text) {
    if (entering_text_ && held_.size() < max_output) {
        held_ += framed(text, settings_.numeric);
    } else if (!entering_text_ && !congested()) {
        output_ += framed(text, settings_.numeric);
    }
}

/// The chatter of a talkative modem comes between the lines and after them, framed as an unsolicited line is.
std::string at_server_t::lines_octets(const at_lines_t& lines) const {
    if (lines.empty()) {
        return {};
    }
    const std::string chatter = faults_.chatter.empty() ? "" : framed(faults_.chatter, settings_.numeric);
    return framed(fmt::format("{}", fmt::join(lines, "\r\n" + chatter)), settings_.numeric) + chatter;
}

void at_server_t::reset_settings() {
    settings_ = {.echo = faults_.echo != echo_t::off_at_start, .numeric = faults_.numeric_at_start};
}

void at_server_t::power_on() {
    reset_settings();
    for (std::string* text : {&line_, &last_line_, &after_text_, &held_, &output_}) {
        text->clear();
    }
    prompt_at_.reset();
    answer_at_.reset();
    late_results_.clear();
    too_long_ = false;
    entering_text_ = false;
}

}  // namespace network
