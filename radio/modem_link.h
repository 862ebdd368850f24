/// The dialogue with a modem over its tty: one exchange at a time, on one thread, each within its time limit.
///
/// The owner is one thread; only `lost`, `wake`, `wake_for_work` and `begin_ending` may be called from
/// others.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "base/clock.h"
#include "base/descriptor.h"
#include "radio/at_dialogue.h"
#include "radio/trace.h"
#include "radio/tty.h"

namespace radio {

class modem_link_t {
  public:
    /// `unsolicited` gets each unsolicited line when it arrives, also in the middle of an exchange; it must not
    /// exchange. The trace records what is said.
    modem_link_t(tty_t& tty, trace_t& trace, std::function<void(const modem_line_t&)> unsolicited);
    modem_link_t(const modem_link_t&) = delete;
    modem_link_t& operator=(const modem_link_t&) = delete;

    /// The tty has been opened: nothing of an earlier dialogue counts any more.
    void begin();
    /// Ends a text entry that a crash may have left, asks for results in words and for no echo, and for something that
    /// the modem answers with a line of its own, so that what comes from then on answers what is asked from then on;
    /// false when it does not answer within `limit`.
    bool wake_modem(limit_t limit = limit_t::first_answer);
    /// The modem has echoed a command: it had not been told before to do without.
    [[nodiscard]] bool echoes() const { return dialogue_.echoes() > 0; }
    /// The modem is set up: it is no longer lost.
    void connected();
    /// Closes the tty: the modem is lost. `reason` goes on after "the modem on TTY"; a tty that is closed already keeps
    /// its own.
    void hang_up(std::string reason = "has hung up");
    /// The reason of the last loss.
    [[nodiscard]] const std::string& loss() const { return loss_; }
    /// The tty is still there, and its modem was lost because it said nothing any more.
    [[nodiscard]] bool fell_silent() const { return fell_silent_; }
    /// Runs one command. After a time-out, or a reply that may not have been its own, the next exchange first brings
    /// the dialogue back.
    reply_t exchange(const command_t& command);
    /// Brings the dialogue back, so that late answers have come; false when the modem stays silent, which is then lost.
    bool recover();
    /// A reply is owed, or may have been another's.
    [[nodiscard]] bool is_out_of_step() const { return out_of_step_; }
    /// Asks a modem that has had the time to restart since its last answer; false when it did.
    bool is_still_set_up();
    /// The modem has restarted since it was set up, as far as it shows, and has forgotten its settings.
    [[nodiscard]] bool restarted() const { return restarted_ || sim_told_; }
    /// The sign of it; goes on after "the modem".
    [[nodiscard]] const char* restart() const { return restarted_ ? "has restarted" : "tells anew of its SIM"; }
    /// Listens for so long; false when the modem is gone or the end has begun.
    bool pause(limit_t time);
    /// Waits until the modem has said something, there is work, somebody calls wake, or tick64 reaches `until`.
    void wait(uint64_t until);

    /// The tty has hung up, and every exchange ends as lost; or the modem is not set up yet. Such a modem's time-outs
    /// are not warned of: there is one who tells them.
    [[nodiscard]] bool lost() const { return lost_; }
    /// The tty has not hung up since it was opened.
    [[nodiscard]] bool is_open() const { return tty_.descriptor() >= 0; }

    /// Ends the wait that runs, or the next one.
    void wake();
    /// Ends a `wait` that runs, or the next one; one within an exchange goes on.
    void wake_for_work();
    /// Since when, on tick64, the modem's thread is away from its wait; 0 while it waits.
    [[nodiscard]] uint64_t busy_since() const { return busy_since_; }
    /// Whatever runs or begins from now on has `limit_t::end` altogether; a set-up ends at once.
    void begin_ending();
    [[nodiscard]] bool ending() const { return ending_at_ != never; }

  private:
    static constexpr uint64_t never = UINT64_MAX;

    reply_t run(const command_t& command);
    reply_t finish(const command_t& command);
    bool in_step();
    reply_t ask_question();
    [[nodiscard]] bool is_fresh() const;
    void look_for_restart(const command_t& command, const reply_t& reply);
    void take_unsolicited(const modem_line_t& line);
    [[nodiscard]] static limit_t limit_of(const command_t& command, bool before_prompt);
    void pump(uint64_t until);
    void read_some();
    void write_some();
    [[nodiscard]] bool cut_off() const;
    [[nodiscard]] bool interrupted() const;

    tty_t& tty_;
    trace_t& trace_;
    std::function<void(const modem_line_t&)> unsolicited_;
    base::descriptor_t wake_event_;
    at_dialogue_t dialogue_;
    std::string out_;  // still to be written
    bool out_of_step_ = false;
    size_t questions_ = 0;    // of all greetings
    bool in_use_ = false;     // set up, and not lost since
    bool restarted_ = false;  // no exchange is of use any more
    bool sim_told_ = false;   // one may be; the modem is set up again afterwards
    bool keeps_echoing_ = false;
    size_t known_echoes_ = 0;
    uint64_t connected_at_ = 0;  // these on tick64
    uint64_t answered_at_ = 0;
    std::string loss_;
    bool fell_silent_ = false;
    std::atomic<bool> lost_ = true;
    std::atomic<uint64_t> ending_at_ = never;
    std::atomic<bool> has_work_ = false;  // since the last `wait`
    std::atomic<bool> waits_for_work_ = false;
    std::atomic<uint64_t> busy_since_ = 0;  // on tick64; 0 while it waits
    base::clock_watch_t clock_watch_;       // last: it wakes, until it is gone
};

/// "no modem answers on …", of wake_modem that was false.
std::string no_answer_on(const std::string& tty);

}  // namespace radio
