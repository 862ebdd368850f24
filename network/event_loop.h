/// What the network's thread waits for: phones that can be read from or written to, work from other threads, and hosts
/// that close a tty. What it costs does not grow with the phones that are idle.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace network {

class phone_t;

/// The descriptors that are waited for. Not thread-safe.
class wait_set_t {
  public:
    wait_set_t();

    /// Until something can be done with one of them, or so many milliseconds are over. The phones whose descriptors
    /// they are; some may be there twice, and of many some may come with the next call only.
    std::vector<phone_t*> wait(int milliseconds) const;

  private:
    friend class waited_t;
    const base::descriptor_t set_;
};

/// A descriptor in the set, which outlives it, as the descriptor itself does.
class waited_t {
  public:
    /// Waits for nothing yet, on behalf of the phone, or of none.
    waited_t(const wait_set_t& set, int fd, phone_t* phone);
    ~waited_t();
    waited_t(const waited_t&) = delete;
    waited_t& operator=(const waited_t&) = delete;

    /// EPOLLIN, EPOLLOUT, both or none. The first time it is false, with errno, when it cannot be entered.
    bool want(uint32_t events);

  private:
    const int set_;
    const int fd_;
    phone_t* const phone_;
    bool entered_ = false;
    uint32_t events_ = 0;
};

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
    /// An id for the watch on the phone's tty.
    int add(const std::string& tty, phone_t* phone);
    void remove(int id);
    /// The phones whose ttys were closed since the last call; of a watch that was removed meanwhile it does not tell.
    std::vector<phone_t*> closed() const;

  private:
    const base::descriptor_t watch_;
    std::map<int, phone_t*> phones_;  // by id
};

}  // namespace network
