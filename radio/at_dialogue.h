/// One command at a time, and everything that a modem says besides. No I/O and no clock: octets in, octets to write
/// out.
///
/// A command names the shape of its reply and the prefixes of its lines; every other line is unsolicited, wherever it
/// stands, also between the lines of a reply; so is a late reply to an earlier submission: one before the prompt, or
/// one that the command knows by its contents. A result that comes before what its command asks for is doubtful: it
/// ends the command only when the owner believes it, because nothing else came. A line of hexadecimal digits belongs to
/// the last header line that still waits for one. Echo of commands and PDUs is dropped, where the modem echoes, also
/// when it comes late. Not thread-safe.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "radio/at_lexer.h"
#include "radio/at_values.h"
#include "radio/limits.h"

namespace radio {

/// What a modem answers.
enum class reply_shape_t : uint8_t {
    result,        // a result, and lines before it, where there are any
    plain_result,  // the same; the result may come as a digit, as after ATV0
    line,          // a line at least; a result of "OK" before it is doubtful
    pdus,          // any number of lines, each followed by one PDU line
    entry,         // the prompt, and behind the text a line as above; an error before the prompt is doubtful
};
/// Of a read or a test command (V.250 5.4.3, 5.4.4), which end with a question mark, a line; of others a result.
reply_shape_t shape_of_answer(std::string_view line);

struct command_t {
    std::string line;  // with "AT", without the line's end
    limit_t limit;     // for the whole exchange
    reply_shape_t shape = reply_shape_t::result;
    std::vector<std::string> prefixes{};  // of its reply lines; without one there are none
    std::string entry{};                  // for the prompt, in hexadecimal
    // Of a line: a late one of a command before this, as is the OK behind it.
    std::function<bool(const std::string&)> is_late{};
    std::string alias{};  // what warnings call a command whose line is nobody's business

    [[nodiscard]] const std::string& shown() const { return alias.empty() ? line : alias; }
};

struct modem_line_t {
    std::string text;
    std::string pdu;  // the PDU line after it, where one belongs to it and came

    bool operator==(const modem_line_t&) const = default;
};

struct reply_t {
    enum class outcome_t { ok, error, timeout, lost };
    outcome_t outcome = outcome_t::lost;
    final_result_t result;  // of ok and error
    std::vector<modem_line_t> lines{};
    bool entry_sent = false;  // the prompt came

    [[nodiscard]] bool ok() const { return outcome == outcome_t::ok; }
    /// The first line, or an empty text.
    [[nodiscard]] std::string first() const { return lines.empty() ? std::string() : lines.front().text; }
};

class at_dialogue_t {
  public:
    /// Starts a command (none must be in progress); returns the octets to write. None when the command line or the
    /// entry holds what they must not; nothing is in progress then.
    std::optional<std::string> begin(const command_t& command);
    /// Takes what the modem sent; returns the octets to write.
    std::string feed(std::string_view octets);

    [[nodiscard]] bool in_progress() const { return in_progress_; }
    /// The command has a text entry, and its prompt has not come.
    [[nodiscard]] bool waits_for_prompt() const;
    /// A result has come that may be that of an earlier command.
    [[nodiscard]] bool in_doubt() const { return doubtful_.has_value(); }
    /// It is this command's: nothing else has come.
    void believe();
    /// Ends the command: with its result when it has one, else with `outcome` and the reply lines so far.
    reply_t end(reply_t::outcome_t outcome);

    /// Octets of the reply so far.
    [[nodiscard]] size_t reply_size() const { return reply_size_; }

    /// How many commands the modem has echoed.
    [[nodiscard]] size_t echoes() const { return echoes_; }

    /// The unsolicited lines since the last call, in order.
    std::deque<modem_line_t> take_unsolicited();

  private:
    enum class header_t : uint8_t { reply, delivery };

    void take_line(const std::string& text);
    void take_result(const final_result_t& result);
    void take_reply_line(const std::string& text);
    void take_delivery(const std::string& text);
    void take_pdu(const std::string& text);
    void finish(const final_result_t& result);
    void expect_pdu(header_t header);
    void expect_no_pdu(header_t header);
    [[nodiscard]] std::optional<final_result_t> result_in(const std::string& text) const;
    [[nodiscard]] bool is_late(const std::string& text) const;
    [[nodiscard]] bool is_reply(const std::string& text) const;

    at_lexer_t lexer_;
    command_t command_;
    reply_t reply_;
    size_t reply_size_ = 0;
    bool in_progress_ = false;
    std::optional<final_result_t> doubtful_;
    bool late_ok_follows_ = false;
    size_t echoes_ = 0;
    std::deque<modem_line_t> unsolicited_;
    std::optional<modem_line_t> delivery_;  // an unsolicited header line whose PDU line is still to come
    std::vector<header_t> headers_;         // that wait for their PDU line, the latest last
};

}  // namespace radio
