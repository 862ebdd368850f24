/// What the commands write: results to standard output, errors and advice to standard error.
#pragma once

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/// The exit statuses of the program.
inline constexpr int exit_done = 0;
inline constexpr int exit_failed = 1;
inline constexpr int exit_usage = 2;

/// A line on standard output, flushed; finish() tells what could not be written.
void say_line(std::string_view line);

template <typename... arguments_t>
void say(fmt::format_string<arguments_t...> format, arguments_t&&... arguments) {
    say_line(fmt::format(format, std::forward<arguments_t>(arguments)...));
}

/// One JSON value on one line, in ASCII: text from the air must not act on a terminal. Octets in texts that are not
/// UTF-8 become U+FFFD.
void say_json(const nlohmann::ordered_json& value);

/// Octets as they are, without an end of line.
void say_octets(std::string_view octets);

/// Waits. False when nobody reads standard output any more.
bool wait_while_read(int milliseconds);

/// Whose words remark() and fail() tell from now on: "zpd send". At first they are those of "zpd".
void speak_as(std::string_view command);

/// The command, ": " and the text on standard error, safe for a terminal.
void remark(std::string_view text, std::string_view end = "\n");
/// The same, of what stops the command: what went wrong on what, why, and what helps. Returns exit_failed.
int fail(std::string_view text);
/// The same, of a command line that asks for what cannot be. Returns exit_usage.
int fail_usage(std::string_view text);

/// The exit status of the program, whose command ended with `status`: exit_failed, and told so, when it was done but
/// its result could not be written. A reader that is gone is no error of ours; SIGPIPE must be ignored.
int finish(int status);

/// "1 datagram", "3 datagrams".
std::string counted(size_t count, std::string_view noun);

/// What goes on, for a person: on a terminal a line that is rewritten in place, elsewhere a line for each change.
class progress_t {
  public:
    /// With `quiet` nothing is written, save on a terminal's standard error.
    explicit progress_t(bool quiet);
    ~progress_t() { clear(); }
    progress_t(const progress_t&) = delete;
    progress_t& operator=(const progress_t&) = delete;

    /// Whether a state takes the place of the one before it, and not a line of its own.
    bool rewrites() const { return terminal_; }
    /// The state of the moment; it is overwritten by the next.
    void show(const std::string& state);
    /// Something that should stay to be read.
    void note(const std::string& text);
    /// Takes the state off a terminal, before something else is written.
    void clear();

  private:
    void write_line(const std::string& line);

    bool terminal_;
    bool quiet_;
    std::string shown_;
};
