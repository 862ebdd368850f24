/// A pseudo-terminal as a modem has it: it stays while no host has it open, and a host that closes it, or dies, leaves
/// nothing behind for the next one. When it ends, a host that still has it open sees it hung up. Not thread-safe.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "base/descriptor.h"
#include "network/host_line.h"

namespace network {

class pty_t : public host_line_t {
  public:
    /// Null, with the reason in `error`, when the system has no more of them.
    static std::unique_ptr<pty_t> open(std::string* error);

    /// The modem's end, not blocking.
    int fd() const { return master_.get(); }
    /// The tty for the host.
    const std::string& name() const { return name_; }

    void read(std::string& into) override;
    void write(std::string& from) override;
    /// After a host has closed the tty: drops what it left unread and its hold on the tty (TIOCEXCL), and makes the tty
    /// raw again.
    void forget_host() const;

  private:
    pty_t(base::descriptor_t master, base::descriptor_t slave, std::string name)
        : master_(std::move(master)), slave_(std::move(slave)), name_(std::move(name)) {}

    const base::descriptor_t master_;
    const base::descriptor_t slave_;  // held open: without it the last host's close would hang the modem's end up
    const std::string name_;
};

}  // namespace network
