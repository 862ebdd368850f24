// The AT dialogue of the radio with a modem that says anything, in fragments, to commands of every shape. What must
// hold: a command ends by a final result alone; its entry is written at the prompt that it awaits, and never else; each
// line is delivered once, to the reply or as unsolicited, and only echoes and results are kept back.
#include "radio/at_dialogue.h"

#include <algorithm>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/input.h"

namespace {

using namespace radio;

const command_t shapes[] = {
    {.line = "AT", .limit = limit_t::setting},
    {.line = "ATQ0V1E0", .limit = limit_t::repeat, .shape = reply_shape_t::plain_result},
    {.line = "AT+CMGF?", .limit = limit_t::settling, .shape = reply_shape_t::line, .prefixes = {"+CMGF:"}},
    {.line = "AT+CREG?", .limit = limit_t::query, .prefixes = {"+CREG:"}},
    {.line = "AT+CMGL=4", .limit = limit_t::listing, .shape = reply_shape_t::pdus, .prefixes = {"+CMGL:"}},
    {.line = "AT+CMGS=2",
     .limit = limit_t::submission,
     .shape = reply_shape_t::entry,
     .prefixes = {"+CMGS:"},
     .entry = "000100",
     .is_late = [](const std::string& text) { return text == "+CMGS: 7"; }},
};

/// What modems say; the input chooses, and puts octets of its own between.
const std::string_view words[] = {
    "\r",
    "\n",
    "\r\n",
    "\r\nOK\r\n",
    "ERROR\r\n",
    "+CMS ERROR: 38\r\n",
    "4\r",
    "0\r",
    ">",
    "\r\n> ",
    "AT+CMGS=2\r",
    "000100\x1a\r\n",
    "+CMGS: 7\r\n",
    "+CMGS: 8\r\n",
    "+CMT: ,3\r\n",
    "+CMTI: \"SM\",1\r\n",
    "+CMGL: 1,1,,3\r\n",
    "000401\r\n",
    "+CREG: 0,1\r\n",
    "+CMGF: 0\r\n",
    "RING\r\n",
    "+CDS: 3\r\n",
    "AT+CPIN=1\r\n",
};

/// A dialogue, and beside it the same octets in lines, each until it has been delivered.
class observed_t {
  public:
    void begin(const command_t& command) {
        command_ = command;
        must(dialogue_.begin(command) == command.line + '\r');
        if (command.shape == reply_shape_t::entry) {
            lexer_.expect_prompt();
        }
    }

    void hear(char octet) {
        const bool awaits = dialogue_.in_progress() && dialogue_.waits_for_prompt();
        const bool ran = dialogue_.in_progress();
        const std::string written = dialogue_.feed({&octet, 1});
        bool prompted = false;
        bool resulted = false;
        for (const token_t& token : lexer_.feed({&octet, 1})) {
            prompted = token.kind == token_t::kind_t::prompt;
            resulted = is_result(token.text);
            if (!prompted) {
                heard_.push_back(token.text);
            }
        }
        must(written == (prompted ? command_.entry + '\x1a' : ""));
        must(!prompted || awaits);
        if (ran && !dialogue_.in_progress()) {
            must(resulted);
            end();
        }
        for (const modem_line_t& line : dialogue_.take_unsolicited()) {
            delivered(line);
        }
    }

    void end() {
        const bool resulted = !dialogue_.in_progress();
        const reply_t reply = dialogue_.end(reply_t::outcome_t::timeout);
        must((reply.outcome == reply_t::outcome_t::timeout) != resulted && !dialogue_.in_progress());
        must(!reply.ok() || command_.entry.empty() || reply.entry_sent);
        const bool wants_line = command_.shape == reply_shape_t::line || command_.shape == reply_shape_t::entry;
        must(!reply.ok() || !wants_line || !reply.lines.empty());
        for (const modem_line_t& line : reply.lines) {
            must(std::ranges::any_of(command_.prefixes, [&](auto& prefix) { return line.text.starts_with(prefix); }));
            must(line.pdu.empty() || command_.shape == reply_shape_t::pdus);
            delivered(line);
        }
        lexer_.expect_no_prompt();
        std::erase_if(heard_, [this](const std::string& line) { return may_be_kept_back(line); });
        must(heard_.size() <= 1);  // the header of a delivery whose PDU is still to come
    }

    bool in_progress() const { return dialogue_.in_progress(); }

  private:
    bool is_result(const std::string& line) const {
        return final_result(line) || (command_.shape == reply_shape_t::plain_result && numeric_result(line));
    }
    bool may_be_kept_back(const std::string& line) const {
        return is_result(line) || line.starts_with("AT") || line.starts_with('>') || line == command_.entry ||
               line.find("+CPIN=") != std::string::npos;
    }
    void delivered(const modem_line_t& line) {
        for (const std::string* text : {&line.text, &line.pdu}) {
            const auto at = std::ranges::find(heard_, *text);
            must(text->empty() || at != heard_.end());
            if (at != heard_.end()) {
                heard_.erase(at);
            }
        }
    }

    at_dialogue_t dialogue_;
    at_lexer_t lexer_;
    command_t command_;
    std::vector<std::string> heard_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    input_t input(data, size);
    observed_t observed;
    while (!input.empty()) {
        const command_t& shape = shapes[input.below(std::size(shapes))];
        observed.begin(shape);
        for (size_t count = input.below(32); count > 0; --count) {
            const size_t word = input.below(32);
            for (const char octet : word < std::size(words) ? std::string(words[word]) : input.piece(3)) {
                observed.hear(octet);
            }
        }
        if (observed.in_progress()) {
            observed.end();
        }
    }
    return 0;
}
