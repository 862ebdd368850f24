#include "radio/modem.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/clock.h"
#include "radio/limits.h"
#include "radio/signs_of_restart.h"
#include "radio/warning.h"

namespace radio {

modem_t::modem_t(callbacks_t& callbacks)
    : callbacks_(callbacks),
      link_(tty_, trace_, [this](const modem_line_t& line) { take_unsolicited(line); }),
      jobs_([this] { link_.wake_for_work(); }),
      identity_(board_),
      sim_(options_, board_),
      registration_(link_, jobs_, board_, [this](DWORD type) { tell_system_type(type); }),
      announcements_(link_, options_, board_),
      mailbox_(link_, callbacks, jobs_, announcements_, registration_, board_),
      submitter_(link_, callbacks, registration_, board_) {}

modem_t::~modem_t() {
    stop();
}

std::string modem_t::start(const modem_options_t& options) {
    options_ = options;
    lasting_path_ = link_to(options_.tty, options_.links);
    mailbox_.observe(options_.observer);
    submitter_.observe(options_.observer);
    std::string error = mailbox_.open();
    if (error.empty() && !options_.trace.empty()) {
        error = trace_.open(options_.trace);
    }
    if (error.empty()) {
        error = open(options_.tty);
    }
    if (error.empty()) {
        error = connect();
    }
    if (error.empty()) {
        thread_ = std::thread([this] { run(); });
    }
    return error;
}

void modem_t::stop() {
    if (thread_.joinable()) {
        link_.begin_ending();
        thread_.join();
    }
    tty_.close();
}

void modem_t::run() {
    while (true) {
        if (link_.restarted() && !lost() && !link_.ending()) {
            set_up_again(link_.restart());
        } else if (const job_queue_t::job_t job = jobs_.next()) {
            job();
        } else if (link_.ending()) {
            return;
        } else if (!lost() && link_.is_out_of_step()) {
            link_.recover();
        } else if (lost() && !loss_told_) {
            tell_loss();
        } else {
            wait_for_the_next();
        }
    }
}

void modem_t::wait_for_the_next() {
    const uint64_t now = base::tick64();
    const uint64_t next_step = mailbox_.next_step();
    const uint64_t next_look = lost() ? next_look_ : mailbox_.next_listing();
    if (now >= next_step) {
        mailbox_.go_on();
    } else if (now < next_look) {
        link_.wait(std::min(next_look, next_step));
    } else if (lost()) {
        look_again();
    } else {
        look_after();
    }
}

void modem_t::set_session(session_pointer_t session) {
    {
        const std::lock_guard lock(mutex_);
        session_ = session;
    }
    jobs_.post([this, session = std::move(session)] { mailbox_.set_receiver(session); });
}

bool modem_t::submit(session_pointer_t session, HRESULT request, submission_t submission, bool more_follow) {
    if (options_.observer != nullptr) {
        if (const outgoing_t datagram = outgoing_of(submission); options_.observer->is_given_up(datagram)) {
            return datagram.place.parts > 1 && submitter_.ends_pause(session, request);
        }
    }
    jobs_.post([this, session = std::move(session), request, submission = std::move(submission), more_follow] {
        if (!link_.is_still_set_up() && !lost() && !link_.ending()) {
            set_up_again(link_.restart());
        }
        submitter_.submit(session, request, submission, more_follow);
    });
    return true;
}

// An error carries no data: a caller that takes any DWORD for a system type would read a network out of its bits.
void modem_t::query_system_type(session_pointer_t session, HRESULT request) {
    jobs_.post([this, session = std::move(session), request] {
        registration_.query();
        if (lost() || link_.ending()) {
            callbacks_.result(session, RIL_RESULT_ERROR, request, std::nullopt);
        } else {
            callbacks_.result(session, RIL_RESULT_OK, request, registration_.system_type());
        }
    });
}

void modem_t::tell_system_type(DWORD type) {
    tell_observer();
    const std::lock_guard lock(mutex_);
    if (session_ && (session_->classes & RIL_NCLASS_NETWORK)) {
        callbacks_.system_changed(session_, type);
    }
}

// Called in the middle of exchanges: what needs the modem becomes a job.
void modem_t::take_unsolicited(const modem_line_t& line) {
    const std::string& text = line.text;
    if (text.starts_with("+CMTI:")) {
        announce(text);
    } else if (text.starts_with("+CMT:")) {
        take_delivery(line);
    } else if (text.starts_with("+CDS:")) {
        jobs_.post_urgent([this] { mailbox_.acknowledge(true); });
    } else if (text.starts_with("+CMGS:")) {
        submitter_.take_late_result(text);
    } else if (announces_full_memory(text)) {
        mailbox_.list_now();
    } else if (!identity_.take(text) && !registration_.take(text) && !announces_start(text) && !tells_sim_state(text)) {
        warn_of_unknown(text);
    }
}

// What is not acknowledged is delivered again.
void modem_t::take_delivery(const modem_line_t& line) {
    if (jobs_.size() < value_of(limit_t::waiting_jobs)) {
        jobs_.post_urgent([this, line] { mailbox_.take_delivery(line); });
    } else {
        warn("messages are delivered faster than they can be kept; the network is to repeat them");
    }
}

// A modem that announces faster than it can be read has all of it listed.
void modem_t::announce(const std::string& line) {
    if (jobs_.size() + mailbox_.announced() < value_of(limit_t::waiting_jobs)) {
        mailbox_.announce(line);
    } else {
        mailbox_.list_soon();
    }
}

// Once a kind of line: some modems report the signal strength every second.
void modem_t::warn_of_unknown(const std::string& line) {
    constexpr size_t most_kinds = 50;
    if (unknown_lines_.size() < most_kinds && unknown_lines_.insert(line.substr(0, line.find(':'))).second) {
        warn("ignored a line of the modem: " + line);
    }
}

std::string modem_t::open(const std::string& path) {
    std::string error = tty_.open(path, options_.line);
    if (error.empty()) {
        board_.change([&](modem_state_t& now) { now.tty = path; });
    }
    return error;
}

void modem_t::note_presence() {
    board_.change([this](modem_state_t& now) {
        now.present = !lost();
        now.loss = lost() ? link_.loss() : std::string();
    });
    tell_observer();
}

void modem_t::tell_observer() const {
    if (options_.observer != nullptr) {
        options_.observer->modem_changed(board_.state());
    }
}

std::string modem_t::connect() {
    if (std::string error = set_up(); !error.empty()) {
        link_.hang_up("cannot be set up: " + error);
        note_presence();
        return error;
    }
    // Told after it can be used: the driver submits as soon as it hears of a network.
    link_.connected();
    note_presence();
    registration_.publish();
    return {};
}

std::string modem_t::set_up() {
    registration_.forget();
    announcements_.forget();
    mailbox_.forget();
    submitter_.forget();
    link_.begin();
    if (!link_.wake_modem()) {
        return no_answer_on(options_.tty);
    }
    setup_inquiry_t inquiry(link_, options_.tty);
    return set_up(inquiry) ? std::string() : inquiry.failure();
}

// What the rest relies on, each step on those before it.
bool modem_t::set_up(setup_inquiry_t& inquiry) {
    if (!inquiry.ask("AT+CMEE=1") || !identity_.set_up(inquiry) || !registration_.set_up_technology(inquiry) ||
        !sim_.set_up(inquiry, !registration_.only_cdma())) {
        return false;
    }
    const std::optional<reply_t> pdu_mode = inquiry.ask("AT+CMGF=0");
    if (!pdu_mode) {
        return false;
    }
    if (!pdu_mode->ok()) {
        return inquiry.fail_modem("refuses PDU mode (AT+CMGF=0)");
    }
    if (!mailbox_.set_up(inquiry) || !announcements_.set_up(inquiry) || !submitter_.set_up(inquiry)) {
        return false;
    }
    sim_.note_number(inquiry);  // as late as this: a SIM that has just got its PIN reads its phone book first
    return registration_.set_up(inquiry);
}

void modem_t::set_up_again(std::string_view reason) {
    warn(fmt::format("the modem {}; it is set up again", reason));
    if (const std::string error = connect(); !error.empty()) {
        known_failure_ = error;
    } else {
        mailbox_.list_soon();
    }
}

void modem_t::look_after() {
    warn_of_the_rest();
    if (announcements_.have_stopped()) {
        set_up_again("has stopped to announce new messages");
    }
    if (!lost() && !link_.ending()) {
        registration_.query_signal();
    }
    mailbox_.list_all();
}

// The path that was given may be another device's by now.
std::string modem_t::present_path() const {
    const bool is_another = !lasting_path_.empty() && !link_to(options_.tty, options_.links).empty();
    return is_another || std::filesystem::exists(lasting_path_) ? lasting_path_ : options_.tty;
}

void modem_t::tell_loss() {
    loss_told_ = true;
    told_failures_ = {std::exchange(known_failure_, {})};
    if (link_.fell_silent()) {
        told_failures_.insert(no_answer_on(options_.tty));
    }
    const std::string also =
        lasting_path_.empty() || lasting_path_ == options_.tty ? "" : " and under " + lasting_path_;
    warn(
        fmt::format("the modem on {} {}; it is looked for there{} until it is back", options_.tty, link_.loss(), also));
    note_presence();
    registration_.publish();
    back_off_ = milliseconds(limit_t::reopening);
    next_look_ = base::tick64() + back_off_;
}

// That the tty is not there yet is no news; that the modem on it cannot be set up is, once a reason.
void modem_t::look_again() {
    if (open(present_path()).empty()) {
        const std::string error = connect();
        if (error.empty()) {
            loss_told_ = false;
            warn(fmt::format("the modem on {} is back", options_.tty));
            mailbox_.list_all();
            return;
        }
        if (!link_.ending() && told_failures_.insert(error).second) {
            warn(error + "; it is tried again");
        }
    }
    back_off_ = std::min(back_off_ * 2, milliseconds(limit_t::reopening_most));
    next_look_ = base::tick64() + back_off_;
}

}  // namespace radio
