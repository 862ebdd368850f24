#include "radio/modem_link.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "radio/warning.h"

namespace radio {

namespace {

constexpr char escape = 0x1B;

int poll_time(uint64_t until) {
    const uint64_t now = base::tick64();
    constexpr uint64_t longest = 3'600'000;
    return until <= now ? 0 : static_cast<int>(std::min(until - now, longest));
}

}  // namespace

modem_link_t::modem_link_t(tty_t& tty, std::function<void(const modem_line_t&)> unsolicited)
    : tty_(tty),
      unsolicited_(std::move(unsolicited)),
      wake_event_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      clock_watch_([this] { wake(); }) {}

void modem_link_t::wake() {
    eventfd_write(wake_event_.get(), 1);
}

void modem_link_t::begin_ending() {
    ending_at_ = base::tick64() + milliseconds(limit_t::end);
    wake();
}

void modem_link_t::begin() {
    dialogue_ = {};
    out_.clear();
    out_of_step_ = false;
}

bool modem_link_t::cut_off() const {
    return tty_.descriptor() < 0 || (lost_ && ending());
}

bool modem_link_t::wake_modem() {
    // Results told, in words, and no echo (V.250 6.2.4 to 6.2.6). Whoever refuses that may still answer the other.
    constexpr std::array<const char*, 2> greetings = {"ATQ0V1E0", "AT"};
    const uint64_t until = base::tick64() + milliseconds(limit_t::first_answer);
    for (size_t i = 0; !cut_off() && !ending() && base::tick64() < until; ++i) {
        // Out of a text entry, should the modem be in one; elsewhere the octet means nothing.
        out_ = escape;
        const reply_t greeted =
            run({.line = greetings[i % greetings.size()], .limit = limit_t::repeat, .any_form = true});
        if (greeted.ok()) {
            // The answers to all repetitions of AT come before this line. A modem without it has had the time to send
            // them.
            const reply_t reply =
                run({.line = "AT+CMGF?", .limit = limit_t::settling, .prefixes = {"+CMGF:"}, .needs_line = true});
            return reply.outcome != reply_t::outcome_t::lost;
        }
        if (greeted.outcome == reply_t::outcome_t::error) {
            pause(limit_t::repeat);
        }
    }
    return false;
}

bool modem_link_t::pause(limit_t time) {
    const uint64_t until = base::tick64() + milliseconds(time);
    while (!cut_off() && !ending() && base::tick64() < until) {
        pump(until);
    }
    return !cut_off() && !ending();
}

reply_t modem_link_t::exchange(const command_t& command) {
    if (!recover()) {
        return {.outcome = cut_off() || ending() ? reply_t::outcome_t::lost : reply_t::outcome_t::timeout,
                .result = {},
                .lines = {}};
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

bool modem_link_t::recover() {
    out_of_step_ = out_of_step_ && !wake_modem();
    return !out_of_step_;
}

reply_t modem_link_t::run(const command_t& command) {
    const std::optional<std::string> octets = dialogue_.begin(command);
    if (!octets) {
        warn("refused to write the command " + command.shown());
        return {.outcome = reply_t::outcome_t::error, .result = {final_result_t::kind_t::error, 0}, .lines = {}};
    }
    out_ += *octets;
    const uint64_t begun = base::tick64();
    while (dialogue_.in_progress() && !cut_off()) {
        const uint64_t deadline =
            std::min<uint64_t>(begun + milliseconds(limit_of(command, dialogue_.waits_for_prompt())), ending_at_);
        if (base::tick64() >= deadline) {
            break;
        }
        pump(deadline);
        if (dialogue_.reply_size() > value_of(limit_t::reply_size)) {
            warn(fmt::format("the answer to {} has no end; the modem is set up again", command.shown()));
            hang_up();
        }
    }
    if (dialogue_.in_progress()) {
        out_.clear();
    }
    return dialogue_.end(cut_off() || ending() ? reply_t::outcome_t::lost : reply_t::outcome_t::timeout);
}

// The one that runs: until the prompt its own, from then on the command's.
limit_t modem_link_t::limit_of(const command_t& command, bool before_prompt) {
    return before_prompt && !command.entry.empty() ? limit_t::prompt : command.limit;
}

void modem_link_t::wait(uint64_t until) {
    pump(std::min<uint64_t>(until, ending_at_));
}

void modem_link_t::pump(uint64_t until) {
    // A tty that has hung up has no descriptor: poll leaves it out.
    pollfd descriptors[2] = {{wake_event_.get(), POLLIN, 0}, {tty_.descriptor(), POLLIN, 0}};
    if (!out_.empty()) {
        descriptors[1].events |= POLLOUT;
    }
    const base::timed_wait_t timed(until);
    if (poll(descriptors, 2, poll_time(until)) <= 0) {
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
        out_ += dialogue_.feed({buffer, static_cast<size_t>(count)});
        for (const modem_line_t& line : dialogue_.take_unsolicited()) {
            unsolicited_(line);
        }
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        hang_up();
    }
}

void modem_link_t::write_some() {
    const ssize_t count = write(tty_.descriptor(), out_.data(), out_.size());
    if (count > 0) {
        out_.erase(0, static_cast<size_t>(count));
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
        hang_up();
    }
}

std::string no_answer_on(const std::string& tty) {
    return fmt::format("no modem answers on {}: AT got no OK within {} seconds", tty, value_of(limit_t::first_answer));
}

void modem_link_t::hang_up() {
    lost_ = true;
    tty_.close();
}

}  // namespace radio
