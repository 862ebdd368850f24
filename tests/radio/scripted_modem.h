/// A modem in the hands of a test: a pseudo-terminal, a reply for each command, and what was said recorded.
///
/// A command without a reply of its own gets OK; replies are written as they are. The reply to "AT+CMGS", whatever its
/// length, begins a text entry when it holds a prompt. Thread-safe; one thread serves the pseudo-terminal.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class scripted_modem_t {
  public:
    /// A modem with message storage "SM" and "ME", registered on GSM.
    scripted_modem_t();
    ~scripted_modem_t();
    scripted_modem_t(const scripted_modem_t&) = delete;
    scripted_modem_t& operator=(const scripted_modem_t&) = delete;

    [[nodiscard]] const std::string& tty() const { return tty_; }

    /// The reply from now on; `once` for the next time only, before those. "" is no answer at all.
    void on(const std::string& command, const std::string& reply);
    void once(const std::string& command, const std::string& reply);
    /// The reply to the end of a text entry, likewise.
    void on_entry(const std::string& reply) { on(entry, reply); }
    void once_entry(const std::string& reply) { once(entry, reply); }

    /// Says something unasked.
    void say(const std::string& text);
    void hang_up();

    /// Waits until the command has come `times` times altogether; false after some seconds.
    bool heard(const std::string& command, size_t times = 1);
    /// The same for text entries, whatever they hold.
    bool entered(size_t times);
    /// Everything heard, in order: command lines, and text entries behind ">".
    std::vector<std::string> log();
    size_t count(const std::string& command);

  private:
    static constexpr const char* entry = ">";

    void serve();
    void take(char octet);
    std::string answer(const std::string& key, const std::string& logged);
    void write_out(const std::string& text);

    int master_ = -1;
    int stop_ = -1;
    std::string tty_;
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::map<std::string, std::string> replies_;
    std::map<std::string, std::deque<std::string>> next_replies_;
    std::vector<std::string> log_;
    std::string input_;
    bool entering_ = false;
    bool hung_up_ = false;
    std::thread thread_;
};
