#include "base/dialogue_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace base {

namespace {

constexpr size_t most_of_a_line = 4'000;  // what is longer is noise, and broken

constexpr char ctrl_z = 0x1A;
constexpr char escape = 0x1B;

std::string escaped(std::string_view text) {
    std::string out;
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool blank_at_end = c == ' ' && at + 1 == text.size();
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c < 0x20 || c >= 0x7F || c == '\\' || blank_at_end) {
            out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
        } else {
            out += c;
        }
    }
    return out;
}

// Where the values begin of a command that hands over a PIN: AT+CPIN="1234" or a maker's own, and 3GPP
// TS 27.007 7.4, 7.5.
size_t values_of_pin_command(const std::string& text) {
    std::string upper = text;
    std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
    for (const std::string_view name : {"PIN", "CLCK", "CPWD"}) {
        if (const size_t at = upper.find(name); at != std::string::npos) {
            return upper.find('=', at);
        }
    }
    return std::string::npos;
}

// Every row of digits from there on.
std::string with_digits_masked(const std::string& text, size_t from) {
    std::string out = text.substr(0, from);
    for (size_t at = from; at < text.size(); ++at) {
        const bool digit = std::isdigit(static_cast<unsigned char>(text[at])) != 0;
        out += !digit ? std::string(1, text[at]) : out.ends_with('*') ? "" : "****";
    }
    return out;
}

std::string_view without_line_ends(std::string_view text) {
    const size_t first = text.find_first_not_of("\r\n");
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of("\r\n") + 1 - first);
}

bool holds_text(std::string_view text) {
    return !without_line_ends(text).empty();
}

}  // namespace

void dialogue_record_t::host_says(std::string_view octets) {
    for (const char c : octets) {
        if (c == ctrl_z) {
            command_.insert(0, "^Z ");
        }
        if (c == '\r' || c == ctrl_z) {
            end_command();
        } else if (c != escape) {  // ends a text entry, should there be one
            command_ += c;
        }
        if (command_.size() >= most_of_a_line) {
            end_command();
        }
    }
}

void dialogue_record_t::end_command() {
    const size_t values = values_of_pin_command(command_);
    pin_said_ = values != std::string::npos;
    answered_ = false;
    add_line(">", pin_said_ ? with_digits_masked(command_, values) : command_);
    command_.clear();
}

// A line of its own for each of the modem's, with the ends that it has; the prompt and a result in digits lack some.
void dialogue_record_t::modem_says(std::string_view octets) {
    for (const char c : octets) {
        answer_ += c;
        if ((c == '\n' && holds_text(answer_)) || answer_.size() >= most_of_a_line) {
            end_line();
        }
    }
    if (answer_.ends_with("> ") || answer_.ends_with('>') || (answer_.ends_with('\r') && holds_text(answer_))) {
        end_line();
    }
}

// What is no result may be an echo of the PIN, perhaps with its first octets lost.
void dialogue_record_t::end_line() {
    const bool may_be_echo = pin_said_ && answer_.find(": ") == std::string::npos;
    add_line(answered_ ? "!" : "<", may_be_echo ? with_digits_masked(answer_, 0) : answer_);
    answered_ = answered_ || is_result_(without_line_ends(answer_));
    answer_.clear();
}

void dialogue_record_t::add_line(std::string_view mark, const std::string& text) {
    if (text.empty()) {
        return;
    }
    const uint64_t now = tick64() - begun_at_;
    if (now != std::exchange(told_, now)) {
        lines_ += fmt::format("# {}.{:03}\n", now / 1000, now % 1000);
    }
    lines_ += fmt::format("{} {}\n", mark, escaped(text));
}

std::string dialogue_record_t::take() {
    return std::exchange(lines_, {});
}

}  // namespace base
