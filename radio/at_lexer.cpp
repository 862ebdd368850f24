#include "radio/at_lexer.h"

#include <algorithm>

namespace radio {

namespace {

// The longest line of use is a PDU of 176 octets in hexadecimal; what is longer by far is noise.
constexpr size_t max_line = 4096;

constexpr char ctrl_z = 0x1A;  // ends the echo of a PDU
constexpr char escape = 0x1B;  // the echo of an aborted text entry

bool ends_line(char c) {
    return c == '\r' || c == '\n' || c == ctrl_z || c == escape;
}

bool is_hex_digit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

std::string trim(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

}  // namespace

std::vector<token_t> at_lexer_t::feed(std::string_view octets) {
    std::vector<token_t> tokens;
    for (const char c : octets) {
        if (ends_line(c)) {
            end_line(tokens);
        } else if (c == '>' && prompt_expected_ && line_.empty()) {
            prompt_expected_ = false;
            tokens.push_back({token_t::kind_t::prompt, {}});
        } else if (line_.size() >= max_line) {
            overlong_ = true;
        } else if (c != '\0' && !(c == ' ' && line_.empty())) {  // some modems send NULs while they start
            line_ += c;
        }
    }
    return tokens;
}

void at_lexer_t::end_line(std::vector<token_t>& tokens) {
    std::string text = trim(line_);
    if (!text.empty() && !overlong_) {
        const bool pdu = text.size() % 2 == 0 && std::ranges::all_of(text, is_hex_digit);
        tokens.push_back({pdu ? token_t::kind_t::pdu : token_t::kind_t::line, std::move(text)});
    }
    line_.clear();
    overlong_ = false;
}

}  // namespace radio
