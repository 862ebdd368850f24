/// Runs the callbacks of a session, one after the other, on a thread of their own, so that a slow driver never keeps
/// the modem waiting. Thread-safe.
#pragma once

#include <ril.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace radio {

/// An open session. `open` belongs to callbacks_t.
struct session_t {
    HRIL handle = nullptr;
    RILRESULTCALLBACK result = nullptr;
    RILNOTIFYCALLBACK notify = nullptr;
    DWORD classes = 0;
    DWORD parameter = 0;
    bool open = true;
};
using session_pointer_t = std::shared_ptr<session_t>;

class callbacks_t {
  public:
    callbacks_t();
    ~callbacks_t();
    callbacks_t(const callbacks_t&) = delete;
    callbacks_t& operator=(const callbacks_t&) = delete;

    /// Queues one callback. A session that has ended by the time its turn comes gets no call.
    void result(const session_pointer_t& session, DWORD code, HRESULT request, std::optional<DWORD> data);
    void system_changed(const session_pointer_t& session, DWORD system_type);
    /// `hand_over` calls the session with the datagrams of a message; `done` is told whether it was called. Both run on
    /// the callbacks' thread, one right after the other.
    void message(const session_pointer_t& session, std::function<void(const session_t&)> hand_over,
                 std::function<void(bool)> done);

    /// Ends a session without waiting: a callback that runs goes on, none begins.
    void end(const session_pointer_t& session);
    /// Waits for the callback of the session that runs, if one does; not for the one that calls this.
    void drain(const session_pointer_t& session);
    /// Hands over no more messages, and waits for one that is being handed over.
    void stop_messages();
    /// Runs what is queued, then ends the thread.
    void stop();

  private:
    struct task_t {
        session_pointer_t session;
        bool is_message;
        std::function<void(const session_t&)> call;
        std::function<void(bool)> done;
    };
    void post(task_t task);
    void run();
    bool run_one();

    std::atomic<uint32_t> posted_ = 0;  // how often there was something to do
    std::mutex mutex_;                  // guards all below but the thread, and `open` of every session
    std::condition_variable changed_;
    std::deque<task_t> tasks_;
    const task_t* running_ = nullptr;
    bool no_messages_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace radio
