/// SIGINT, SIGTERM and (unless it is ignored) SIGHUP as a descriptor to wait on. From its construction on they are
/// blocked in this thread and in those that it starts; construct it before any other thread. A child must unblock them
/// before it runs a program.
#pragma once

#include <csignal>

#include "base/descriptor.h"

namespace base {

class end_signals_t {
  public:
    end_signals_t();

    /// Readable when one of the signals has come; it stays readable.
    int descriptor() const { return descriptor_.get(); }
    /// Waits at most `milliseconds` (-1: for ever) for a signal; false when the time is over.
    bool wait(int milliseconds) const;
    /// Lets the signal that has come do what it does to a process that does not block it: end it, so that a shell's
    /// loop ends as well.
    void end_by_signal() const;

  private:
    sigset_t signals_{};
    descriptor_t descriptor_;
};

}  // namespace base
