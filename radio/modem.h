/// The modem: set up, watched, and spoken to by one thread of its own, which takes one job after the other. What it is
/// for, its parts do, each with its own state: the SIM, the registration watch, the announcements, the mailbox and the
/// submitter.
///
/// Public calls may come from any thread and never wait, save `start` and `stop`. Members without a lock belong to the
/// modem's thread. Results and notifications leave through callbacks_t, which must outlive the thread.
#pragma once

#include <ril.h>

#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "radio/announcements.h"
#include "radio/attach_modem.h"
#include "radio/callbacks.h"
#include "radio/job_queue.h"
#include "radio/mailbox.h"
#include "radio/modem_identity.h"
#include "radio/modem_link.h"
#include "radio/modem_state.h"
#include "radio/observer.h"
#include "radio/registration_watch.h"
#include "radio/sim.h"
#include "radio/submitter.h"

namespace radio {

class modem_t {
  public:
    explicit modem_t(callbacks_t& callbacks);
    ~modem_t();
    modem_t(const modem_t&) = delete;
    modem_t& operator=(const modem_t&) = delete;

    /// Opens the tty, sets the modem up and starts the thread; once. Returns an empty text, or what failed and why.
    /// From then on a modem that hangs up is looked for under the same path, and set up again, until the end.
    [[nodiscard]] std::string start(const modem_options_t& options);
    /// Ends the thread, after the deletes that are due and with an error for every request that is not answered yet.
    void stop();

    /// Makes a `start` that runs return promptly, with a failure.
    void cancel_start() { link_.begin_ending(); }

    /// Not set up yet, or hung up and not back yet: no request can be taken.
    [[nodiscard]] bool lost() const { return link_.lost(); }

    /// The session that messages and notifications go to from now on; null for none.
    void set_session(session_pointer_t session);
    /// False for a datagram of a message that is given up.
    [[nodiscard]] bool submit(session_pointer_t session, HRESULT request, submission_t submission, bool more_follow);
    void query_system_type(session_pointer_t session, HRESULT request);
    [[nodiscard]] card_counts_t card_counts() { return mailbox_.card_counts(); }
    [[nodiscard]] modem_state_t state() const { return board_.state(); }
    [[nodiscard]] uint64_t busy_since() const { return link_.busy_since(); }

  private:
    void run();
    void wait_for_the_next();
    void tell_system_type(DWORD type);
    void tell_observer() const;
    void take_unsolicited(const modem_line_t& line);
    void take_delivery(const modem_line_t& line);
    void announce(const std::string& line);
    void warn_of_unknown(const std::string& line);

    // Setting up.
    [[nodiscard]] std::string open(const std::string& path);
    [[nodiscard]] std::string connect();
    [[nodiscard]] std::string set_up();
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry);
    void set_up_again(std::string_view reason);
    void look_after();
    void note_presence();

    // A modem that is lost.
    void tell_loss();
    void look_again();
    [[nodiscard]] std::string present_path() const;

    callbacks_t& callbacks_;
    modem_options_t options_;
    tty_t tty_;
    trace_t trace_;
    modem_link_t link_;
    job_queue_t jobs_;
    modem_board_t board_;

    modem_identity_t identity_;
    sim_t sim_;
    registration_watch_t registration_;
    announcements_t announcements_;
    mailbox_t mailbox_;
    submitter_t submitter_;

    std::set<std::string> unknown_lines_;
    std::string lasting_path_;             // see modem_options_t::links
    std::set<std::string> told_failures_;  // to set it up, since the loss
    std::string known_failure_;            // told as the reason of the loss
    bool loss_told_ = false;
    uint64_t next_look_ = 0;  // for a lost modem, on tick64
    uint64_t back_off_ = 0;   // milliseconds

    std::mutex mutex_;  // guards the session
    session_pointer_t session_;
    std::thread thread_;
};

}  // namespace radio
