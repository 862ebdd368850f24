#include "radio/modem_link.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "radio/signs_of_restart.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr char escape = 0x1B;

struct question_t {
    const char* line;
    const char* prefix;
};
constexpr std::array<question_t, 3> questions = {
    {{"AT+CMGF?", "+CMGF:"}, {"AT+CSMS?", "+CSMS:"}, {"AT+CMEE?", "+CMEE:"}}};

int poll_time(uint64_t until) {
    const uint64_t now = base::tick64();
    constexpr uint64_t longest = 3'600'000;
    return until <= now ? 0 : static_cast<int>(std::min(until - now, longest));
}

}  // namespace

modem_link_t::modem_link_t(tty_t& tty, trace_t& trace, std::function<void(const modem_line_t&)> unsolicited)
    : tty_(tty),
      trace_(trace),
      unsolicited_(std::move(unsolicited)),
      wake_event_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      clock_watch_([this] { wake(); }) {}

void modem_link_t::wake() {
    eventfd_write(wake_event_.get(), 1);
}

// Either this sees that the thread waits, or the thread sees that there is work.
void modem_link_t::wake_for_work() {
    has_work_ = true;
    if (waits_for_work_) {
        wake();
    }
}

void modem_link_t::begin_ending() {
    ending_at_ = base::tick64() + milliseconds(limit_t::end);
    wake();
}

void modem_link_t::begin() {
    dialogue_ = {};
    out_.clear();
    out_of_step_ = false;
    in_use_ = false;
    restarted_ = false;
    sim_told_ = false;
}

void modem_link_t::connected() {
    keeps_echoing_ = dialogue_.echoes() > known_echoes_;
    known_echoes_ = dialogue_.echoes();
    connected_at_ = base::tick64();
    in_use_ = true;
    lost_ = false;
}

bool modem_link_t::cut_off() const {
    return tty_.descriptor() < 0 || (lost_ && ending());
}

// What a modem was asked before it restarted it does not answer.
bool modem_link_t::interrupted() const {
    return restarted_ && in_use_;
}

bool modem_link_t::wake_modem(limit_t limit) {
    // Results told, in words, and no echo (V.250 6.2.4 to 6.2.6). Whoever refuses that may still answer the other.
    constexpr std::array<const char*, 2> greetings = {"ATQ0V1E0", "AT"};
    const uint64_t until = base::tick64() + milliseconds(limit);
    size_t refused = 0;
    for (size_t i = 0; !cut_off() && !interrupted() && !ending() && base::tick64() < until; ++i) {
        // Out of a text entry, should the modem be in one; elsewhere the octet means nothing.
        out_ = escape;
        const reply_t greeted = run(
            {.line = greetings[i % greetings.size()], .limit = limit_t::repeat, .shape = reply_shape_t::plain_result});
        if (greeted.ok()) {
            const reply_t answer = ask_question();
            refused += answer.outcome == reply_t::outcome_t::error ? 1 : 0;
            if (!answer.lines.empty() || refused == questions.size()) {
                return in_step();
            }
        } else if (greeted.outcome == reply_t::outcome_t::error) {
            pause(limit_t::repeat);
        }
    }
    return false;
}

// What a modem says of its start before it was told anything is no news.
bool modem_link_t::in_step() {
    if (!in_use_) {
        known_echoes_ = dialogue_.echoes();
        restarted_ = false;
    }
    out_of_step_ = cut_off();
    return !out_of_step_;
}

// Each with a line of its own, so that an answer to the one before it is not taken for this one's: before the line come
// the answers to all greetings.
reply_t modem_link_t::ask_question() {
    const question_t& question = questions[questions_++ % questions.size()];
    return run({.line = question.line,
                .limit = limit_t::first_answer,
                .shape = reply_shape_t::line,
                .prefixes = {question.prefix}});
}

bool modem_link_t::pause(limit_t time) {
    const uint64_t until = base::tick64() + milliseconds(time);
    while (!cut_off() && !ending() && base::tick64() < until) {
        pump(until);
    }
    return !cut_off() && !ending();
}

reply_t modem_link_t::exchange(const command_t& command) {
    if (interrupted() || !recover()) {
        const bool gone = cut_off() || ending() || interrupted();
        return {.outcome = gone ? reply_t::outcome_t::lost : reply_t::outcome_t::timeout, .result = {}, .lines = {}};
    }
    reply_t reply = run(command);
    if (reply.outcome == reply_t::outcome_t::timeout) {
        if (const limit_t passed = limit_of(command, !reply.entry_sent); !lost_) {
            warn(fmt::format("no answer to {} within {} s ({})", command.shown(), value_of(passed), name_of(passed)));
        }
        out_of_step_ = true;
    }
    return reply;
}

// A modem that is being set up has no more time than at its start.
bool modem_link_t::recover() {
    const limit_t limit = in_use_ ? limit_t::silence : limit_t::first_answer;
    const bool silent = out_of_step_ && !wake_modem(limit);
    if (silent && in_use_ && !ending() && !cut_off() && !interrupted()) {
        hang_up(fmt::format("does not answer (AT for {} s)", value_of(limit)));
        fell_silent_ = true;
    }
    return !silent;
}

bool modem_link_t::is_still_set_up() {
    if (in_use_ && base::tick64() >= answered_at_ + milliseconds(limit_t::restart)) {
        exchange({.line = "AT+CMGF?", .limit = limit_t::setting, .shape = reply_shape_t::line, .prefixes = {"+CMGF:"}});
    }
    return !restarted();
}

reply_t modem_link_t::run(const command_t& command) {
    const std::optional<std::string> octets = dialogue_.begin(command);
    if (!octets) {
        warn("refused to write the command " + command.shown());
        return {.outcome = reply_t::outcome_t::error, .result = {final_result_t::kind_t::error, 0}, .lines = {}};
    }
    out_ += *octets;
    const uint64_t begun = base::tick64();
    std::optional<uint64_t> settled_at;  // as long as the result is in doubt
    while (dialogue_.in_progress() && !cut_off() && !interrupted()) {
        const uint64_t deadline =
            std::min<uint64_t>(begun + milliseconds(limit_of(command, dialogue_.waits_for_prompt())), ending_at_);
        settled_at = dialogue_.in_doubt() ? settled_at.value_or(base::tick64() + milliseconds(limit_t::settling))
                                          : std::optional<uint64_t>();
        if (base::tick64() >= settled_at.value_or(deadline)) {
            break;
        }
        pump(std::min(deadline, settled_at.value_or(deadline)));
        if (dialogue_.reply_size() > value_of(limit_t::reply_size)) {
            warn(fmt::format("the answer to {} has no end; the modem is set up again", command.shown()));
            hang_up();
        }
    }
    return finish(command);
}

// A result in doubt is believed, and the dialogue brought back before the next command.
reply_t modem_link_t::finish(const command_t& command) {
    if (dialogue_.in_doubt()) {
        dialogue_.believe();
        out_of_step_ = true;
    }
    if (dialogue_.in_progress()) {
        out_.clear();
    }
    const bool gone = cut_off() || ending() || interrupted();
    reply_t reply = dialogue_.end(gone ? reply_t::outcome_t::lost : reply_t::outcome_t::timeout);
    look_for_restart(command, reply);
    return reply;
}

// A modem that was set up does not echo, unless it always does, is in PDU mode, and has a SIM that is open. Just after
// the set-up the SIM still tells what it was asked for then.
void modem_link_t::look_for_restart(const command_t& command, const reply_t& reply) {
    if (reply.ok() || reply.outcome == reply_t::outcome_t::error) {
        answered_at_ = base::tick64();
    }
    const bool echoed = dialogue_.echoes() > known_echoes_ && !keeps_echoing_;
    const bool in_text_mode = command.line == "AT+CMGF?" && reply.first() == "+CMGF: 1";
    const bool wants_sim = reply.outcome == reply_t::outcome_t::error && tells_sim_state(reply.result);
    restarted_ = restarted_ || (in_use_ && (echoed || in_text_mode));
    sim_told_ = sim_told_ || (in_use_ && wants_sim && !is_fresh());
}

bool modem_link_t::is_fresh() const {
    return base::tick64() < connected_at_ + milliseconds(limit_t::sim_settled);
}

void modem_link_t::take_unsolicited(const modem_line_t& line) {
    restarted_ = restarted_ || announces_start(line.text);
    sim_told_ = sim_told_ || (in_use_ && tells_sim_state(line.text) && !is_fresh());
    out_of_step_ = out_of_step_ || is_reply_alone(line.text);
    unsolicited_(line);
}

// The one that runs: until the prompt its own, from then on the command's.
limit_t modem_link_t::limit_of(const command_t& command, bool before_prompt) {
    return before_prompt && command.shape == reply_shape_t::entry ? limit_t::prompt : command.limit;
}

void modem_link_t::wait(uint64_t until) {
    waits_for_work_ = true;
    if (!has_work_.exchange(false)) {
        pump(std::min<uint64_t>(until, ending_at_));
    }
    waits_for_work_ = false;
}

void modem_link_t::pump(uint64_t until) {
    if (!out_.empty() && is_open()) {
        write_some();  // there is room, as good as always
        if (!is_open()) {
            return;
        }
    }
    // A tty that has hung up has no descriptor: poll leaves it out.
    pollfd descriptors[2] = {{wake_event_.get(), POLLIN, 0}, {tty_.descriptor(), POLLIN, 0}};
    if (!out_.empty()) {
        descriptors[1].events |= POLLOUT;
    }
    const base::timed_wait_t timed(until);
    busy_since_.store(0, std::memory_order_relaxed);
    const int ready = poll(descriptors, 2, poll_time(until));
    busy_since_.store(base::tick64(), std::memory_order_relaxed);
    if (ready <= 0) {
        return;
    }
    if (descriptors[0].revents != 0) {
        eventfd_t ignored = 0;
        eventfd_read(wake_event_.get(), &ignored);
    }
    if ((descriptors[1].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) != 0) {
        read_some();
    }
    if (tty_.descriptor() >= 0 && (descriptors[1].revents & POLLOUT) != 0) {
        write_some();
    }
}

void modem_link_t::read_some() {
    char buffer[1024];
    const ssize_t count = read(tty_.descriptor(), buffer, sizeof buffer);
    if (count > 0) {
        trace_.received({buffer, static_cast<size_t>(count)});
        out_ += dialogue_.feed({buffer, static_cast<size_t>(count)});
        for (const modem_line_t& line : dialogue_.take_unsolicited()) {
            take_unsolicited(line);
        }
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        hang_up();
    }
}

void modem_link_t::write_some() {
    const ssize_t count = write(tty_.descriptor(), out_.data(), out_.size());
    if (count > 0) {
        trace_.sent(std::string_view(out_).substr(0, static_cast<size_t>(count)));
        out_.erase(0, static_cast<size_t>(count));
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
        hang_up();
    }
}

std::string no_answer_on(const std::string& tty) {
    return fmt::format("no modem answers on {}: AT got no OK within {} seconds", tty, value_of(limit_t::first_answer));
}

void modem_link_t::hang_up(std::string reason) {
    if (is_open()) {
        loss_ = std::move(reason);
        fell_silent_ = false;
    }
    in_use_ = false;
    lost_ = true;
    tty_.close();
}

}  // namespace radio
