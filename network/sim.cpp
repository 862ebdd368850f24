#include "network/sim.h"

#include <utility>

#include "base/clock.h"

namespace network {

void sim_t::set_pin(std::string pin) {
    pin_ = std::move(pin);
    tries_left_ = all_tries;
    locked_ = !pin_.empty();
}

void sim_t::set_busy(uint64_t milliseconds, unsigned code) {
    busy_at_start_ = {milliseconds, code};
    busy_until_ = base::tick64() + milliseconds;
}

void sim_t::power_on() {
    locked_ = !pin_.empty();
    busy_until_ = base::tick64() + busy_at_start_.milliseconds;
}

bool sim_t::busy() const {
    return base::tick64() < busy_until_;
}

std::string_view sim_t::state() const {
    return !locked_ ? "READY" : tries_left_ > 0 ? "SIM PIN" : "SIM PUK";
}

/// After three wrong ones only the PUK helps, and nobody here knows it.
at_result_t sim_t::enter(std::string_view pin) {
    if (busy()) {
        return cme_sim_busy;
    }
    if (!locked_) {
        ++entries_.unasked;
        return cme_not_allowed;
    }
    if (tries_left_ == 0) {
        return cme_puk_required;
    }
    if (pin != pin_) {
        --tries_left_;
        ++entries_.wrong;
        return cme_incorrect_password;
    }
    ++entries_.right;
    tries_left_ = all_tries;
    power_on();
    locked_ = false;
    return at_ok;
}

std::optional<at_result_t> sim_t::refusal() const {
    return busy() ? std::optional(cme_sim_busy) : std::nullopt;
}

std::optional<at_result_t> sim_t::message_refusal() const {
    if (busy()) {
        return cms_error(busy_at_start_.code);
    }
    if (locked_) {
        return tries_left_ > 0 ? cms_pin_required : cms_puk_required;
    }
    return std::nullopt;
}

}  // namespace network
