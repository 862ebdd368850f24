#include "network/phone.h"

#include <poll.h>

#include <utility>

#include "base/clock.h"

namespace network {

namespace {

constexpr uint64_t retry_after = 1'000;  // milliseconds

}  // namespace

phone_t::phone_t(std::string number, access_technology_t technology, service_centre_t& service_centre,
                 std::filesystem::path link, const tty_watch_t& watch)
    : number_(std::move(number)),
      service_centre_(service_centre),
      path_(std::move(link)),
      watch_(watch),
      modem_(number_, technology, service_centre) {}

phone_t::~phone_t() {
    service_centre_.detach(number_);
}

bool phone_t::plug_in(std::string* error) {
    std::unique_ptr<pty_t> pty = next_pty_ ? std::move(next_pty_) : pty_t::open(error);
    if (!pty) {
        return false;
    }
    link_ = tty_link_t::make(path_, pty->name(), error);
    if (!link_) {
        return false;
    }
    pty_ = std::move(pty);
    watch_id_ = watch_.add(pty_->name());
    return_at_.reset();
    power_on();
    return true;
}

void phone_t::power_on() {
    starting_.reset();
    modem_.power_on();
    service_centre_.attach(number_, modem_.messages(), modem_.faults());
}

void phone_t::restart(uint64_t milliseconds, std::string line) {
    if (plugged_in()) {
        service_centre_.detach(number_);
        starting_ = {base::tick64() + milliseconds, std::move(line)};
    }
}

void phone_t::hang_up(std::optional<uint64_t> milliseconds) {
    if (plugged_in()) {
        std::string error;  // without one now, there may be one later
        next_pty_ = pty_t::open(&error);
    }
    service_centre_.detach(number_);
    link_.reset();
    pty_.reset();
    watch_id_ = -1;
    input_.clear();
    return_at_.reset();
    starting_.reset();
    if (milliseconds) {
        return_at_ = base::tick64() + *milliseconds;
    }
}

std::optional<uint64_t> phone_t::deadline() const {
    return starting_ ? starting_->at : plugged_in() ? modem_.deadline() : return_at_;
}

void phone_t::pass_deadline() {
    if (starting_ && starting_->at <= base::tick64()) {
        const std::string line = starting_->line;
        power_on();
        if (!line.empty()) {
            modem_.dialogue().unsolicited(line);
        }
    } else if (starting_) {
        return;
    } else if (plugged_in()) {
        modem_.pass_deadline();
    } else if (return_at_ && *return_at_ <= base::tick64()) {
        std::string error;  // what stands in the link's place may be gone the next time
        if (!plug_in(&error)) {
            hang_up(retry_after);
        }
    }
}

short phone_t::wanted_events() {
    const bool unread = !modem_.dialogue().output().empty();
    return static_cast<short>((input_.empty() ? POLLIN : 0) | (unread ? POLLOUT : 0));
}

void phone_t::read() {
    if (input_.empty()) {
        pty_->read(input_);
    }
}

void phone_t::execute() {
    if (starting_) {
        input_.clear();
    }
    size_t taken = 0;
    while (taken < input_.size() && modem_.dialogue().ready()) {
        modem_.dialogue().take(input_[taken++]);
    }
    input_.erase(0, taken);
}

void phone_t::write() {
    std::string& output = modem_.dialogue().output();
    if (starting_ || modem_.faults().silent != silence_t::none) {
        output.clear();
    }
    if (modem_.faults().single_octets && output.size() > 1) {
        std::string first = output.substr(0, 1);
        pty_->write(first);
        output.erase(0, 1 - first.size());
        return;
    }
    pty_->write(output);
}

/// The host that comes next must not read the answers to this one.
void phone_t::host_closed() {
    modem_.dialogue().output().clear();
    pty_->forget_host();
    if (modem_.faults().silent == silence_t::until_opened) {
        modem_.faults().silent = silence_t::none;
    }
}

}  // namespace network
