/// The modem: set up, watched, and spoken to by one thread of its own, which takes one job after the other.
///
/// Public calls may come from any thread and never wait, save `start` and `stop`. Members without a lock belong to the
/// modem's thread. Results and notifications leave through callbacks_t, which must outlive the thread.
#pragma once

#include <ril.h>

#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "radio/callbacks.h"
#include "radio/journal.h"
#include "radio/modem_link.h"
#include "radio/modem_port.h"
#include "radio/open_submissions.h"
#include "radio/ril_message.h"

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
    void submit(session_pointer_t session, HRESULT request, submission_t submission, bool more_follow);
    void query_system_type(session_pointer_t session, HRESULT request);

  private:
    using job_t = std::function<void()>;

    // modem.cpp: the thread
    void run();
    void post(job_t job);
    job_t next_job();
    session_pointer_t session();
    void take_unsolicited(const modem_line_t& line);
    void warn_of_unknown(const std::string& line);
    [[nodiscard]] std::string connect();
    void tell_loss();
    void look_again();
    [[nodiscard]] std::string present_path() const;

    // modem_setup.cpp
    [[nodiscard]] std::string set_up();
    void forget();
    reply_t ask(const std::string& line, const std::vector<std::string_view>& prefixes = {});
    void set_up_memories();
    [[nodiscard]] std::string set_up_announcement();
    [[nodiscard]] std::string set_up_users_announcement();
    bool announce(const announcement_t& choice);
    void tell_announcement();
    void check_announcement();
    void set_up_service(announcement_t::way_t way);
    void set_up_link_keeping();

    // modem_sim.cpp
    [[nodiscard]] std::string set_up_sim();
    [[nodiscard]] std::string enter_pin();
    [[nodiscard]] std::string why_not_enter(const std::string& pin);
    std::optional<int> pin_tries();
    bool wait_for_sim();

    // modem_receive.cpp
    void warn_unless_lost(const std::string& text);
    bool select_memory(const std::string& memory);
    void list_all();
    void list(const std::string& memory);
    void read_new(const location_t& location);
    struct stored_datagram_t {
        location_t location;
        arrival_t arrival;
    };
    void consider(const location_t& location, const stored_message_t& message, const std::string& pdu,
                  std::vector<stored_datagram_t>& datagrams) const;
    [[nodiscard]] std::optional<arrival_t> arrival_of(const std::string& pdu, size_t length) const;
    void take(const std::vector<stored_datagram_t>& datagrams);
    void remove(const location_t& location);
    void begin_receiving(session_pointer_t session);
    void hand_over_next();
    void make_room(const session_pointer_t& session);
    void take_delivery(const modem_line_t& line);
    void give_texts_back();
    bool put_on_modem(size_t length, const std::string& pdu);
    void acknowledge(bool safe);
    [[nodiscard]] int64_t seconds_now() const;

    // modem_registration.cpp
    void set_up_registration();
    void set_up_technology();
    void query_technology();
    void query_serving_system();
    void take_registration(const std::string& line);
    void query_registration();
    void query_one(const std::string& command, const char* prefix);
    registration_t& kept_of(std::string_view line);
    void publish_system_type();

    // modem_submit.cpp
    void answer_submission(const session_pointer_t& session, HRESULT request, const submission_t& submission,
                           bool more_follow);
    reply_t run_submission(const open_submission_t& open, const submission_t& submission, bool more_follow);
    void tell_refusal(const reply_t& reply);
    void keep_link(bool more_follow);
    void take_late_result(const std::string& line);

    callbacks_t& callbacks_;
    tty_t tty_;
    modem_link_t link_;
    std::thread thread_;
    modem_options_t options_;

    std::mutex mutex_;  // guards the next two
    std::deque<job_t> jobs_;
    session_pointer_t session_;

    // What the modem offers, from the set-up on.
    std::string set_up_failure_;
    std::vector<std::string> memories_;  // that may hold messages; empty when there is no choice
    announcement_t announcement_;
    int link_keeping_ = 0;  // what to set +CMMS to; 0 when it cannot be
    technology_t technology_ = technology_t::gsm;
    bool acknowledges_ = false;   // +CMT wants +CNMA
    bool tells_circuit_ = false;  // +CREG
    bool tells_packet_ = false;   // +CEREG
    bool tells_5g_ = false;       // +C5GREG
    bool tells_service_ = false;  // +CAD: may be on a CDMA network
    bool only_cdma_ = false;

    // Receiving.
    journal_t journal_;
    std::set<location_t> undeleted_;  // which the modem refused to delete
    bool refused_text_told_ = false;
    int64_t began_at_ = 0;  // seconds since 1970, at began_at_tick_
    uint64_t began_at_tick_ = 0;
    session_pointer_t receiver_;  // who wants messages; null for nobody
    int64_t handed_over_ = 0;     // the last of the journal that this session has been given
    size_t with_driver_ = 0;      // of those, how many have not come back yet
    std::string selected_memory_;
    uint64_t next_listing_ = 0;

    bool registration_asked_ = false;  // by a job that is due or runs
    registration_t circuit_;
    registration_t packet_;
    registration_t packet_5g_;
    DWORD system_type_ = RIL_SYSTEMTYPE_NONE;

    // Sending.
    open_submissions_t open_;
    std::set<std::pair<final_result_t::kind_t, int>> told_refusals_;
    uint64_t link_kept_until_ = 0;

    uint64_t sim_deadline_ = 0;  // of the set-up
    bool sim_wait_told_ = false;
    uint64_t next_look_ = 0;    // for a lost modem
    uint64_t back_off_ = 0;     // milliseconds
    std::string lasting_path_;  // see modem_options_t::links
    std::string told_announcement_;
    std::set<std::string> unknown_lines_;
    std::set<std::string> told_failures_;  // to set it up, since the loss
    bool link_kept_ = false;
    bool loss_told_ = false;
    bool pin_entered_ = false;  // and not refused; whether it was right shows in the SIM's state
};

}  // namespace radio
