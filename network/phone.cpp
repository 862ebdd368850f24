#include "network/phone.h"

#include <poll.h>

#include "platform/linux/clock.h"

namespace network {

phone_t::phone_t(std::string number, service_centre_t& service_centre)
    : number_(std::move(number)), service_centre_(service_centre), modem_(number_, service_centre) {}

phone_t::~phone_t() {
    hang_up();
}

bool phone_t::plug_in(const std::filesystem::path& link, const tty_watch_t& watch, std::string* error) {
    std::unique_ptr<pty_t> pty = pty_t::open(error);
    if (!pty) {
        return false;
    }
    link_ = tty_link_t::make(link, pty->name(), error);
    if (!link_) {
        return false;
    }
    pty_ = std::move(pty);
    watch_id_ = watch.add(pty_->name());
    modem_.power_on();
    service_centre_.attach(number_, modem_.messages());
    return true;
}

void phone_t::hang_up() {
    service_centre_.detach(number_);
    link_.reset();
    pty_.reset();
    watch_id_ = -1;
    input_.clear();
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
    const std::optional<uint64_t> deadline = modem_.messages().deadline();
    if (deadline && *deadline <= platform::tick64()) {
        modem_.messages().pass_deadline();
    }
    size_t taken = 0;
    while (taken < input_.size() && !modem_.dialogue().congested()) {
        modem_.dialogue().take(input_[taken++]);
    }
    input_.erase(0, taken);
}

void phone_t::write() {
    std::string& output = modem_.dialogue().output();
    if (modem_.faults().silent) {
        output.clear();
    }
    pty_->write(output);
}

/// The host that comes next must not read the answers to this one.
void phone_t::host_closed() {
    modem_.dialogue().output().clear();
    pty_->forget_host();
}

}  // namespace network
