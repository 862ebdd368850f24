/// Outgoing messages: AT+CMGS, 3GPP TS 27.005 4.3, with the link kept between those that follow one another (3.5.6),
/// and each datagram whose result stayed away told from the others. Used on the modem's thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>

#include "radio/callbacks.h"
#include "radio/modem_state.h"
#include "radio/observer.h"
#include "radio/open_submissions.h"
#include "radio/registration_watch.h"
#include "radio/ril_message.h"
#include "radio/setup_inquiry.h"

namespace radio {

class submitter_t {
  public:
    /// All outlive the object.
    submitter_t(modem_link_t& link, callbacks_t& callbacks, const registration_watch_t& registration,
                modem_board_t& board)
        : link_(link), callbacks_(callbacks), registration_(registration), board_(board) {}

    /// Who is told what became of each submission; null for nobody. Before the first one.
    void observe(observer_t* observer) { observer_ = observer; }

    /// After an error the driver hands in one datagram in five seconds, until one succeeds: what is left of a message
    /// that is given up would hold up all others for its length. So the first datagram of it that comes in such a pause
    /// is answered with a success, and not submitted; the next is refused, and the driver lets go of the rest at once.
    /// True when this one was answered so. From any thread.
    [[nodiscard]] bool ends_pause(const session_pointer_t& session, HRESULT request);

    /// What was known of a modem that is set up anew; not the datagrams that nobody knows of.
    void forget();
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry);

    /// Sends a message, and has the session told what became of it. `more_follow`: the next one is about to come. One
    /// that waited here while its message was given up is answered with a success as well, and not submitted.
    void submit(const session_pointer_t& session, HRESULT request, const submission_t& submission, bool more_follow);
    /// +CMGS that came too late for its own submission.
    void take_late_result(const std::string& line);

  private:
    void end(const session_pointer_t& session, HRESULT request, const outgoing_t& datagram,
             const submission_outcome_t& outcome, DWORD data);
    [[nodiscard]] DWORD what_hinders(const submission_t& submission);
    reply_t run(const open_submission_t& open, int part, bool more_follow);
    bool is_sent(const reply_t& reply);
    reply_t exchange_as_owed(const command_t& command, int part);
    void keep_or_close(open_submission_t& open, const reply_t& reply);
    void tell_refusal(const open_submission_t& open, const reply_t& reply);
    void keep_link(bool more_follow);

    modem_link_t& link_;
    callbacks_t& callbacks_;
    const registration_watch_t& registration_;
    modem_board_t& board_;
    observer_t* observer_ = nullptr;
    std::atomic<bool> driver_pauses_ = false;  // the last result was an error
    open_submissions_t open_;
    std::set<std::string> told_refusals_;
    int link_keeping_ = 0;  // what to set +CMMS to; 0 when it cannot be
    bool link_kept_ = false;
    bool tells_references_ = false;
    uint64_t link_kept_until_ = 0;  // tick64
};

}  // namespace radio
