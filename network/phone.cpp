#include "network/phone.h"

#include <fmt/format.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/clock.h"
#include "base/text.h"

namespace network {

namespace {

constexpr uint64_t retry_after = 1'000;  // milliseconds

}  // namespace

phone_t::phone_t(std::string number, access_technology_t technology, service_centre_t& service_centre,
                 std::filesystem::path link, const wait_set_t& waits, tty_watch_t& watch)
    : number_(std::move(number)),
      service_centre_(service_centre),
      path_(std::move(link)),
      waits_(waits),
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
    auto waited = std::make_unique<waited_t>(waits_, pty->fd(), this);
    if (!waited->want(EPOLLIN)) {
        *error = "cannot wait for a pseudo-terminal: " + base::errno_text(errno);
        return false;
    }
    auto port = address_ ? tcp_port_t::open(*address_, waits_, this, error) : nullptr;
    if (address_ && !port) {
        return false;
    }
    link_ = tty_link_t::make(path_, pty->name(), error);
    if (!link_) {
        return false;
    }
    port_ = std::move(port);
    pty_ = std::move(pty);
    tty_waited_ = std::move(waited);
    watch_id_ = watch_.add(pty_->name(), this);
    return_at_.reset();
    power_on();
    return true;
}

bool phone_t::listen(const tcp_address_t& address, std::string* error) {
    if (address_) {
        *error = fmt::format("the phone {} listens at {} already", number_, to_text(*address_));
        return false;
    }
    auto port = tcp_port_t::open(address, waits_, this, error);
    if (!port) {
        return false;
    }
    address_ = port->address();
    if (plugged_in()) {
        port_ = std::move(port);
    }
    return true;
}

std::optional<tcp_address_t> phone_t::listens_at() const {
    return port_ ? address_ : std::nullopt;
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

void phone_t::end_restart() {
    if (starting_) {
        const std::string line = starting_->line;
        power_on();
        if (!line.empty()) {
            modem_.dialogue().unsolicited(line);
        }
    }
}

void phone_t::hang_up(std::optional<uint64_t> milliseconds) {
    if (plugged_in()) {
        std::string error;  // without one now, there may be one later
        next_pty_ = pty_t::open(&error);
    }
    service_centre_.detach(number_);
    link_.reset();
    watch_.remove(std::exchange(watch_id_, -1));
    tty_waited_.reset();
    pty_.reset();
    port_.reset();
    input_.clear();
    return_at_.reset();
    starting_.reset();
    if (milliseconds) {
        return_at_ = base::tick64() + *milliseconds;
    }
}

std::optional<uint64_t> phone_t::deadline() const {
    const std::optional<uint64_t> own = starting_ ? starting_->at : plugged_in() ? modem_.deadline() : return_at_;
    const std::optional<uint64_t> port = port_ ? port_->deadline() : std::nullopt;
    return own && port ? std::min(*own, *port) : own ? own : port;
}

void phone_t::pass_deadline() {
    if (starting_ && starting_->at <= base::tick64()) {
        end_restart();
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

std::string phone_t::log(const std::filesystem::path& file, at_log_t::told_t told) {
    std::string error;
    log_ = at_log_t::open(file, std::move(told), &error);
    return error;
}

host_line_t& phone_t::line() const {
    return connected() ? static_cast<host_line_t&>(*port_) : *pty_;
}

void phone_t::read() {
    take_connection();
    if (connected()) {
        std::string unheard;
        pty_->read(unheard);
    }
    if (input_.empty()) {
        line().read(input_);
        if (log_) {
            log_->host_says(input_);
        }
    }
    end_connection();
}

/// The host that comes is not to have what was said to the one at the tty, nor to be answered what that one asked.
void phone_t::take_connection() {
    if (port_ && port_->accept()) {
        input_.clear();
        modem_.dialogue().output().clear();
    }
}

void phone_t::end_connection() {
    if (connected() && port_->host_has_gone(modem_.dialogue().output().size())) {
        port_->disconnect();
        input_.clear();
        forget_host();
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
    const bool congested = modem_.dialogue().congested();
    write_output();
    end_connection();
    if (congested && !modem_.dialogue().congested()) {
        service_centre_.touch(number_);
    }
}

void phone_t::write_output() {
    std::string& output = modem_.dialogue().output();
    if (starting_ || modem_.faults().silent != silence_t::none) {
        output.clear();
    }
    if (modem_.faults().single_octets && output.size() > 1) {
        std::string first = output.substr(0, 1);
        say(first, true);
        output.erase(0, 1 - first.size());
        return;
    }
    say(output, false);
}

void phone_t::say(std::string& octets, bool more) {
    const std::string all = log_ ? octets : std::string();
    line().write(octets);
    if (log_) {
        log_->modem_says(std::string_view(all).substr(0, all.size() - octets.size()), more || !octets.empty());
    }
}

void phone_t::wait() {
    if (!plugged_in()) {
        return;
    }
    const bool for_words = input_.empty();
    const bool for_room = !modem_.dialogue().output().empty();
    tty_waited_->want((for_words || connected() ? EPOLLIN : 0U) | (for_room && !connected() ? EPOLLOUT : 0U));
    if (port_) {
        port_->wait(for_words, for_room);
    }
}

void phone_t::host_closed() {
    pty_->forget_host();
    if (!connected()) {
        forget_host();
    }
}

/// The host that comes next must not read the answers to this one.
void phone_t::forget_host() {
    modem_.dialogue().output().clear();
    if (modem_.faults().silent == silence_t::until_opened) {
        modem_.faults().silent = silence_t::none;
    }
}

}  // namespace network
