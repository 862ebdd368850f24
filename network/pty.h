/// A pseudo-terminal as a modem has it: it stays while no host has it open, and a host that closes it, or dies, leaves
/// nothing behind for the next one. Not thread-safe.
#pragma once

#include <memory>
#include <string>

namespace network {

class pty_t {
  public:
    /// Null, with the reason in `error`, when the system has no more of them.
    static std::unique_ptr<pty_t> open(std::string* error);
    /// A host that still has the tty open sees it hung up.
    ~pty_t();
    pty_t(const pty_t&) = delete;
    pty_t& operator=(const pty_t&) = delete;

    /// The modem's end, not blocking.
    int fd() const { return master_; }
    /// The tty for the host.
    const std::string& name() const { return name_; }

    /// Appends what the host has written, a bounded piece at a time.
    void read(std::string& into) const;
    /// Removes from `from` what the tty has taken.
    void write(std::string& from) const;
    /// After a host has closed the tty: drops what it left unread and its hold on the tty (TIOCEXCL), and makes the tty
    /// raw again.
    void forget_host() const;

  private:
    pty_t(int master, int slave, std::string name) : master_(master), slave_(slave), name_(std::move(name)) {}

    const int master_;
    const int slave_;  // held open: without it the last host's close would hang the modem's end up
    const std::string name_;
};

}  // namespace network
