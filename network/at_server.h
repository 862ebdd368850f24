/// The modem's side of the AT dialogue, V.250: octets from the host become command lines, their results octets to the
/// host. No I/O: the owner feeds octets and takes the output away. Not thread-safe.
///
/// It keeps the settings of the dialogue itself (ATE, ATQ, ATV, +CMEE, S3 to S5); every other command goes to
/// at_commands_t. What precedes "AT" is ignored, lines and texts of any length are taken in bounded space. How it
/// speaks otherwise than usual, faults_t says.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "network/at_command.h"
#include "network/faults.h"
#include "network/result_codes.h"

namespace network {

/// The lines of a command's information response.
using at_lines_t = std::vector<std::string>;

/// What executes the commands.
class at_commands_t {
  public:
    virtual ~at_commands_t() = default;
    virtual at_result_t execute(const at_command_t& command, at_lines_t& lines) = 0;
    /// The text that the last command asked for (at_enter_text, without line ends, or at_enter_lines).
    virtual at_result_t execute_text(std::string_view text, at_lines_t& lines) = 0;
    /// ATZ, AT&F
    virtual void reset_settings() = 0;
};

class at_server_t {
  public:
    /// Both outlive the object.
    at_server_t(at_commands_t& commands, const faults_t& faults);

    void take(char octet);
    /// Sends an unsolicited result code; while the host enters text it waits for the end of that.
    void unsolicited(std::string_view text);
    /// Whether unsolicited text goes out at once, and will not be lost: no text is being entered, the host reads.
    bool free() const { return !entering_text_ && !congested(); }
    /// Whether the host has left so much unread that nothing more should be taken from it.
    bool congested() const { return output_.size() >= max_output; }
    /// Whether the next octet may be taken.
    bool ready() const { return !prompt_at_ && !answer_at_ && !congested(); }
    /// When, on base::tick64, something that is said late is due.
    std::optional<uint64_t> deadline() const;
    /// To be called at or after the deadline.
    void pass_deadline();
    /// What is to be written to the host; the owner erases what it has written.
    std::string& output() { return output_; }
    /// Everything as after power-on.
    void power_on();
    /// The settings as after power-on.
    void reset_settings();

  private:
    static constexpr size_t max_output = 65'536;
    // A PDU has at most 2 * (12 + 164) digits; a command line a few parameters.
    static constexpr size_t max_line = 2048;

    struct settings_t {
        bool echo = true;
        bool numeric = false;
        bool quiet = false;
        error_form_t error_form = error_form_t::plain;
    };

    void take_line(char octet);
    bool take_prefix(char octet);
    void take_text(char octet);
    void take_line_end(char octet);
    void echo(char octet);
    void append(char octet);
    void complete();
    void answer();
    void end_line();
    void run(std::string_view commands);
    void begin_prompt();
    void end_text();
    void finish(at_result_t result);
    std::string result_octets(at_result_t result) const;
    std::string lines_octets(const at_lines_t& lines) const;
    std::optional<at_result_t> execute_own(const at_command_t& command, at_lines_t& lines);
    static at_result_t execute_register(const at_command_t& command, at_lines_t& lines);
    at_result_t execute_cmee(const at_command_t& command, at_lines_t& lines);
    at_result_t execute(const at_command_t& command);

    struct late_t {
        uint64_t at;
        std::string octets;
    };

    at_commands_t& commands_;
    const faults_t& faults_;
    settings_t settings_;
    std::string line_;  // with its "AT", or the text
    bool too_long_ = false;
    std::string last_line_;  // for A/
    bool entering_text_ = false;
    bool entering_lines_ = false;  // line ends are of the text
    std::string after_text_;       // the commands that follow the one that asked for text
    std::string held_;             // unsolicited, until the text is entered
    std::optional<uint64_t> prompt_at_;
    std::optional<uint64_t> answer_at_;  // the line or text is complete, and taken up then
    std::deque<late_t> late_results_;
    std::string output_;
};

}  // namespace network
