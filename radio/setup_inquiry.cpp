#include "radio/setup_inquiry.h"

#include <fmt/format.h>

#include <utility>

#include "base/clock.h"
#include "radio/limits.h"
#include "radio/warning.h"

namespace radio {

setup_inquiry_t::setup_inquiry_t(modem_link_t& link, const std::string& tty)
    : link_(link), tty_(tty), begun_at_(base::tick64()) {}

std::optional<reply_t> setup_inquiry_t::ask(const std::string& line, std::string_view prefix) {
    const command_t command{.line = line,
                            .limit = limit_t::setting,
                            .shape = prefix.empty() ? reply_shape_t::result : shape_of_answer(line),
                            .prefixes = prefix.empty() ? std::vector<std::string>() : std::vector{std::string(prefix)}};
    reply_t reply;
    do {
        reply = link_.exchange(command);
    } while (not_ready_yet(reply.result) && wait_for_sim());
    if (reply.outcome == reply_t::outcome_t::lost) {
        fail_modem("hung up during " + line);
    } else if (reply.outcome == reply_t::outcome_t::timeout) {
        fail_modem("does not answer " + line);
    } else if (not_ready_yet(reply.result)) {
        fail_modem(fmt::format("is not ready after {} s: {} to {}", value_of(limit_t::sim_ready),
                               described(reply.result), line));
    }
    return failure_.empty() ? std::optional(std::move(reply)) : std::nullopt;
}

bool setup_inquiry_t::wait_for_sim() {
    if (!std::exchange(sim_wait_told_, true)) {
        warn(fmt::format("the SIM is not ready yet; it is waited for, {} s at most", value_of(limit_t::sim_ready)));
    }
    return base::tick64() < begun_at_ + milliseconds(limit_t::sim_ready) && link_.pause(limit_t::repeat);
}

bool setup_inquiry_t::wait_for_sim_to_appear() {
    return base::tick64() < begun_at_ + milliseconds(limit_t::sim_there) && wait_for_sim();
}

bool setup_inquiry_t::fail(std::string text) {
    failure_ = std::move(text);
    return false;
}

bool setup_inquiry_t::fail_modem(const std::string& text) {
    return fail(fmt::format("the modem on {} {}", tty_, text));
}

}  // namespace radio
