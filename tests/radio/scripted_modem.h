/// A modem in the hands of a test: a pseudo-terminal, a reply for each command, and what was said recorded.
///
/// A command without a reply of its own gets OK, a question ERROR; replies are written as they are. "AT+CMGS" stands
/// for that command with whatever length, and ">" for the end of a text entry with whatever text; the reply to the
/// former begins the latter when it holds a prompt. Thread-safe; one thread serves the pseudo-terminal.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class scripted_modem_t {
  public:
    static constexpr std::chrono::seconds patience{20};  // only a failing test waits so long
    static constexpr const char* ok = "\r\nOK\r\n";
    static constexpr const char* error = "\r\nERROR\r\n";
    static std::string line_and_ok(const std::string& line) { return "\r\n" + line + "\r\n" + ok; }

    /// A modem with message storage "SM" and "ME", registered on GSM.
    scripted_modem_t();
    ~scripted_modem_t();

    [[nodiscard]] const std::string& tty() const { return tty_; }

    /// The reply from now on; `once` for the next time only, before those. "" is no answer at all.
    void on(const std::string& command, const std::string& reply);
    void once(const std::string& command, const std::string& reply);

    /// The reply to all other commands, in place of OK.
    void otherwise(const std::string& reply);
    /// How much is written at once; the rest waits until the host has read that.
    enum class pace_t { whole, line, octet };
    void set_pace(pace_t pace);

    /// Answers so late, in order: it takes the next command meanwhile.
    void set_delay(std::chrono::milliseconds delay);
    /// Takes what it hears, and neither answers nor says anything.
    void mute(bool mute);

    /// Says something unasked; with a prompt at its end a text entry begins.
    void say(const std::string& text);
    void hang_up();
    /// After hanging up: there again, on another tty. Until then nobody gets its old name.
    void plug_in();

    /// Waits until the command has come `times` times altogether; false when the time is over first.
    bool heard(const std::string& command, size_t times = 1, std::chrono::milliseconds limit = patience);
    /// Everything heard, in order: command lines, and text entries behind ">".
    std::vector<std::string> log();
    /// One line of it, once it is there; an empty text when the time is over first.
    std::string line(size_t position, std::chrono::milliseconds limit = patience);
    size_t count(const std::string& command);
    /// What a command or a text entry has its reply under.
    static std::string key_of(const std::string& line);

  private:
    void serve(const std::stop_token& stop);
    void take(char octet);
    std::string answer(const std::string& line);
    size_t count_of(const std::string& command) const;
    void reply(const std::string& text);
    void write_delayed();
    void write_out(const std::string& text);
    void wait_until_read() const;

    std::string tty_;
    std::mutex mutex_;    // guards all below
    int master_ = -1;     // -1 after hanging up
    int host_side_ = -1;  // keeps the name of a modem that has hung up from others
    std::condition_variable changed_;
    std::map<std::string, std::string> replies_;
    std::map<std::string, std::deque<std::string>> next_replies_;
    std::vector<std::string> log_;
    std::string input_;
    bool entering_ = false;
    std::string otherwise_ = ok;
    pace_t pace_ = pace_t::whole;
    bool muted_ = false;
    std::chrono::milliseconds delay_{0};
    std::deque<std::pair<std::chrono::steady_clock::time_point, std::string>> delayed_;
    std::jthread thread_;
};
