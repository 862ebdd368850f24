// The modem's thread: jobs, unsolicited lines, a modem that goes away, and the end.
#include "radio/modem.h"

#include <fmt/format.h>
#include <platform/linux/home.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "radio/warning.h"

namespace radio {

constexpr int64_t seconds_a_day = 86'400;

modem_t::modem_t(callbacks_t& callbacks)
    : callbacks_(callbacks), link_(tty_, [this](const modem_line_t& line) { take_unsolicited(line); }) {}

modem_t::~modem_t() {
    stop();
}

std::string modem_t::start(const modem_options_t& options) {
    options_ = options;
    lasting_path_ = link_to(options_.tty, options_.links);
    began_at_ = std::time(nullptr);
    began_at_tick_ = base::tick64();
    std::string error = journal_.open(journal_file(platform::home()),
                                      {.age = static_cast<int64_t>(value_of(limit_t::journal_age)) * seconds_a_day,
                                       .datagrams = value_of(limit_t::journal_size)});
    if (error.empty()) {
        error = tty_.open(options_.tty);
    }
    if (error.empty()) {
        error = connect();
    }
    if (error.empty()) {
        thread_ = std::thread([this] { run(); });
    }
    return error;
}

std::string modem_t::connect() {
    if (std::string error = set_up(); !error.empty()) {
        link_.hang_up();
        return error;
    }
    // Told after it can be used: the driver submits as soon as it hears of a network.
    link_.connected();
    publish_system_type();
    return {};
}

// The path that was given may be another device's by now.
std::string modem_t::present_path() const {
    const bool is_another = !lasting_path_.empty() && !link_to(options_.tty, options_.links).empty();
    return is_another || std::filesystem::exists(lasting_path_) ? lasting_path_ : options_.tty;
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
        if (const job_t job = next_job()) {
            job();
        } else if (link_.ending()) {
            return;
        } else if (lost() && !loss_told_) {
            tell_loss();
        } else if (const uint64_t next = lost() ? next_look_ : next_listing_; base::tick64() < next) {
            link_.wait(next);
        } else if (lost()) {
            look_again();
        } else {
            check_announcement();
            list_all();
        }
    }
}

void modem_t::post(job_t job) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    link_.wake();
}

modem_t::job_t modem_t::next_job() {
    const std::lock_guard lock(mutex_);
    if (jobs_.empty()) {
        return {};
    }
    job_t job = std::move(jobs_.front());
    jobs_.pop_front();
    return job;
}

session_pointer_t modem_t::session() {
    const std::lock_guard lock(mutex_);
    return session_;
}

void modem_t::set_session(session_pointer_t session) {
    {
        const std::lock_guard lock(mutex_);
        session_ = session;
    }
    post([this, session = std::move(session)] { begin_receiving(session); });
}

void modem_t::submit(session_pointer_t session, HRESULT request, submission_t submission, bool more_follow) {
    post([this, session = std::move(session), request, submission = std::move(submission), more_follow] {
        answer_submission(session, request, submission, more_follow);
    });
}

// An error carries no data: a caller that takes any DWORD for a system type would read a network out of its bits.
void modem_t::query_system_type(session_pointer_t session, HRESULT request) {
    post([this, session = std::move(session), request] {
        query_registration();
        if (lost() || link_.ending()) {
            callbacks_.result(session, RIL_RESULT_ERROR, request, std::nullopt);
        } else {
            callbacks_.result(session, RIL_RESULT_OK, request, system_type_);
        }
    });
}

// Called in the middle of exchanges: what needs the modem becomes a job.
void modem_t::take_unsolicited(const modem_line_t& line) {
    const std::string& text = line.text;
    if (text.starts_with("+CMTI:")) {
        const std::optional<location_t> location = new_message(text);
        if (!location) {
            warn("odd announcement, listing all messages: " + text);
        }
        post([this, location] { location ? read_new(*location) : list_all(); });
    } else if (text.starts_with("+CMT:")) {
        post([this, line] { take_delivery(line); });
    } else if (text.starts_with("+CDS:")) {
        post([this] { acknowledge(true); });
    } else if (text.starts_with("+CREG:") || text.starts_with("+CEREG:") || text.starts_with("+C5GREG:")) {
        take_registration(text);
    } else if (text.starts_with("+CMGS:")) {
        take_late_result(text);
    } else {
        warn_of_unknown(text);
    }
}

// Once a kind of line: some modems report the signal strength every second.
void modem_t::warn_of_unknown(const std::string& line) {
    constexpr size_t most_kinds = 50;
    if (unknown_lines_.size() < most_kinds && unknown_lines_.insert(line.substr(0, line.find(':'))).second) {
        warn("ignored a line of the modem: " + line);
    }
}

void modem_t::tell_loss() {
    loss_told_ = true;
    told_failures_.clear();
    const std::string also =
        lasting_path_.empty() || lasting_path_ == options_.tty ? "" : " and under " + lasting_path_;
    warn(fmt::format("the modem on {} has hung up; it is looked for there{} until it is back", options_.tty, also));
    publish_system_type();
    back_off_ = milliseconds(limit_t::reopening);
    next_look_ = base::tick64() + back_off_;
}

// That the tty is not there yet is no news; that the modem on it cannot be set up is, once a reason.
void modem_t::look_again() {
    if (tty_.open(present_path()).empty()) {
        const std::string error = connect();
        if (error.empty()) {
            loss_told_ = false;
            warn(fmt::format("the modem on {} is back", options_.tty));
            list_all();
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
