/// What the network's thread waits for besides its ttys: work from other threads, and hosts that close a tty.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace network {

/// Work that other threads have done on the network's thread, to which all modems belong.
class task_queue_t {
  public:
    task_queue_t();

    /// Any thread but the network's: returns when the task has been done.
    void run(const std::function<void()>& task);
    /// Any thread: ends the network thread's wait.
    void wake() const;

    /// The network's thread: readable when there is work.
    int fd() const { return event_.get(); }
    void do_all();

  private:
    struct waiting_task_t {
        const std::function<void()>* task;
        bool done = false;
    };

    const base::descriptor_t event_;
    std::mutex mutex_;
    std::condition_variable done_;
    std::vector<waiting_task_t*> waiting_;  // guarded by mutex_; each lives on its run's stack
};

/// Tells when a host has closed one of the ttys watched. Without the system's support (no more inotify instances) it
/// never does; then a host may find what the one before it left unread.
class tty_watch_t {
  public:
    tty_watch_t();

    int fd() const { return watch_.get(); }
    /// An id for the tty, or -1. The watch ends with the tty.
    int add(const std::string& tty) const;
    /// The ids of the ttys closed since the last call.
    std::vector<int> closed() const;

  private:
    const base::descriptor_t watch_;
};

}  // namespace network
