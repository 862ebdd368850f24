/// A phone of the network: a modem on a tty that DIR/<number> links to, or, while it is hung up, on none. Used on the
/// network's thread alone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "network/event_loop.h"
#include "network/modem.h"
#include "network/pty.h"
#include "network/tty_link.h"

namespace network {

class phone_t {
  public:
    /// `service_centre` and `watch` outlive the phone, whose tty is found at `link`.
    phone_t(std::string number, access_technology_t technology, service_centre_t& service_centre,
            std::filesystem::path link, const tty_watch_t& watch);
    ~phone_t();
    phone_t(const phone_t&) = delete;
    phone_t& operator=(const phone_t&) = delete;

    /// Powers the modem on, on a new tty. False, with the reason in `error`, when tty or link cannot be made.
    bool plug_in(std::string* error);
    /// Takes the tty and its link away, for so many milliseconds of base::tick64, or until plug_in. The next tty
    /// has another name.
    void hang_up(std::optional<uint64_t> milliseconds);
    /// The modem starts anew on its tty: it hears nothing for so many milliseconds of base::tick64, and then says
    /// `line`, if any.
    void restart(uint64_t milliseconds, std::string line);
    bool plugged_in() const { return pty_ != nullptr; }

    const std::string& number() const { return number_; }
    modem_t& modem() { return modem_; }
    const modem_t& modem() const { return modem_; }
    int watch_id() const { return watch_id_; }

    // One round: wait for these events on fd(), read, execute, (the service centre delivers,) write.
    int fd() const { return pty_->fd(); }
    short wanted_events();
    void read();
    void execute();
    void write();
    /// Whether execute has more to do at once.
    bool has_input() { return !input_.empty() && modem_.dialogue().ready(); }
    /// When, on base::tick64, pass_deadline has something to do.
    std::optional<uint64_t> deadline() const;
    void pass_deadline();
    void host_closed();

  private:
    struct start_t {
        uint64_t at;  // base::tick64
        std::string line;
    };
    void power_on();

    const std::string number_;
    service_centre_t& service_centre_;
    const std::filesystem::path path_;
    const tty_watch_t& watch_;
    modem_t modem_;
    std::unique_ptr<pty_t> pty_;
    std::unique_ptr<tty_link_t> link_;
    std::unique_ptr<pty_t> next_pty_;  // while it is hung up: of another name than the one before
    std::optional<uint64_t> return_at_;
    std::optional<start_t> starting_;
    int watch_id_ = -1;
    std::string input_;  // read, not yet executed: at most one read's worth
};

}  // namespace network
