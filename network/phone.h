/// A phone of the network: a modem on a tty that DIR/<number> links to, or, while it is hung up, on none. Used on the
/// network's thread alone.
///
/// Its modem may also be reached over TCP. While a host is connected there the modem speaks to that one alone: what
/// comes on the tty is dropped, and the host there hears nothing.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "network/at_log.h"
#include "network/event_loop.h"
#include "network/modem.h"
#include "network/pty.h"
#include "network/tcp_port.h"
#include "network/tty_link.h"

namespace network {

class phone_t {
  public:
    /// `service_centre`, `waits` and `watch` outlive the phone, whose tty is found at `link`.
    phone_t(std::string number, access_technology_t technology, service_centre_t& service_centre,
            std::filesystem::path link, const wait_set_t& waits, tty_watch_t& watch);
    ~phone_t();
    phone_t(const phone_t&) = delete;
    phone_t& operator=(const phone_t&) = delete;

    /// Powers the modem on, on a new tty. False, with the reason in `error`, when tty or link cannot be made, or
    /// somebody else has its TCP port.
    bool plug_in(std::string* error);
    /// Takes the tty, its link and the TCP port away, for so many milliseconds of base::tick64, or until plug_in. The
    /// next tty has another name.
    void hang_up(std::optional<uint64_t> milliseconds);
    /// The modem starts anew on its tty or connection: it hears nothing for so many milliseconds of base::tick64, and
    /// then says `line`, if any.
    void restart(uint64_t milliseconds, std::string line);
    bool plugged_in() const { return pty_ != nullptr; }
    /// When, on base::tick64, it comes back from a hang-up, if by itself.
    std::optional<uint64_t> returns_at() const { return return_at_; }
    struct start_t {
        uint64_t at;  // base::tick64
        std::string line;
    };
    /// The end of a restart that is under way.
    const std::optional<start_t>& starting() const { return starting_; }
    /// Does nothing without one.
    void end_restart();
    /// From now on its modem is reached there, too, whenever it is plugged in. False, with the reason in `error`, when
    /// one cannot listen there, or it listens already.
    bool listen(const tcp_address_t& address, std::string* error);
    /// Where; none when it is not reached over TCP, now or at all.
    std::optional<tcp_address_t> listens_at() const;

    /// From now on what it and its hosts say is recorded there (at_log.h). Returns an empty text, or what failed;
    /// what fails later is told.
    [[nodiscard]] std::string log(const std::filesystem::path& file, at_log_t::told_t told);

    const std::string& number() const { return number_; }
    /// Empty while it is hung up.
    std::string tty() const { return pty_ ? pty_->name() : std::string(); }
    /// Messages that the service centre keeps for it.
    size_t waiting() const { return service_centre_.waiting_for(number_); }
    modem_t& modem() { return modem_; }
    const modem_t& modem() const { return modem_; }

    // One round: read, execute, (the service centre delivers,) write, wait; all but the last only while it is plugged
    // in.
    void read();
    void execute();
    void write();
    /// Enters what is to be waited for into the set.
    void wait();
    /// Whether execute has more to do at once.
    bool has_input() { return plugged_in() && !input_.empty() && modem_.dialogue().ready(); }
    /// When, on base::tick64, pass_deadline has something to do.
    std::optional<uint64_t> deadline() const;
    void pass_deadline();
    /// The host at the tty has closed it.
    void host_closed();

  private:
    void power_on();
    bool connected() const { return port_ != nullptr && port_->connected(); }
    host_line_t& line() const;
    void take_connection();
    void end_connection();
    void write_output();
    void say(std::string& octets, bool more);
    void forget_host();

    const std::string number_;
    service_centre_t& service_centre_;
    const std::filesystem::path path_;
    const wait_set_t& waits_;
    tty_watch_t& watch_;
    modem_t modem_;
    std::unique_ptr<pty_t> pty_;
    std::unique_ptr<waited_t> tty_waited_;
    std::unique_ptr<tty_link_t> link_;
    std::unique_ptr<pty_t> next_pty_;       // while it is hung up: of another name than the one before
    std::optional<tcp_address_t> address_;  // of the port, also while it is hung up
    std::unique_ptr<tcp_port_t> port_;
    std::unique_ptr<at_log_t> log_;
    std::optional<uint64_t> return_at_;
    std::optional<start_t> starting_;
    int watch_id_ = -1;
    std::string input_;  // read, not yet executed: at most one read's worth
};

}  // namespace network
