/// Octets from a modem into the pieces of its dialogue (3GPP TS 27.007 5.2, 3GPP TS 27.005 3.5.1). No I/O, and no
/// knowledge of commands; octets may come in any fragments.
///
/// What modems send: lines ended by CR LF, by CR alone (an echo) or by LF alone; empty lines between them; the prompt
/// of a text entry as "> ", ">" or ">" CR LF, with or without CR LF before it; a result as a digit and CR (ATV0).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace radio {

struct token_t {
    enum class kind_t {
        line,
        pdu,     // a line of nothing but hexadecimal digits, an even number of them
        prompt,  // no text
    };
    kind_t kind = kind_t::line;
    std::string text;  // without the line's end and without blanks around it; never empty for line and pdu

    bool operator==(const token_t&) const = default;
};

class at_lexer_t {
  public:
    /// A ">" that begins a line is the prompt, once.
    void expect_prompt() { prompt_expected_ = true; }
    void expect_no_prompt() { prompt_expected_ = false; }

    std::vector<token_t> feed(std::string_view octets);

  private:
    void end_line(std::vector<token_t>& tokens);

    std::string line_;
    bool overlong_ = false;
    bool prompt_expected_ = false;
};

}  // namespace radio
