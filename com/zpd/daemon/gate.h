/// The gate of the daemon. Who enters the daemon passes it as a visitor; starts and ends make and unmake the daemon
/// behind it, one after another.
///
/// A start has visitors wait until the daemon is there, so that nothing they bring is lost. An end turns newcomers away
/// at once and waits for those who are inside. While the daemon is there visitors take no lock; the turn is what starts
/// and ends hold to their end: it is taken before the control lock, never under it. Nothing fails.
#pragma once

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

class daemon_t;

/// The single daemon; null before ZPD_Init and after ZPD_Deinit. For whose turn it is; others read it through a
/// daemon_visit_t.
extern daemon_t* global_daemon_object;

class gate_t {
  public:
    /// Never destroyed: threads may come until the process ends.
    static gate_t& instance();
    gate_t(const gate_t&) = delete;
    gate_t& operator=(const gate_t&) = delete;

    /// The turn of a start or an end, for as long as the lock is held.
    [[nodiscard]] std::unique_lock<std::mutex> take_turn() { return std::unique_lock(turn); }
    /// Stores what `make` returns, a daemon or null; `make` does not throw. Whoever comes on its own thread meanwhile,
    /// out of the calls that it makes, finds no daemon.
    void open(daemon_t* (*make)());
    /// Returns when nobody is inside. From then on there is no daemon for visitors.
    void close();

  private:
    friend class daemon_visit_t;
    enum state_t : uint32_t { closed, opening, opened };
    static constexpr uint32_t visitor = 4;  // one in `inside`, whose lowest bits are the state

    gate_t() = default;
    daemon_t* enter();
    void leave();
    state_t state() const { return static_cast<state_t>(inside.load() % visitor); }
    void set_state(state_t state);

    std::mutex turn;
    std::mutex mutex;  // guards the changes of the state, and the thread
    std::condition_variable changed;
    std::atomic<uint32_t> inside{closed};
    DWORD opening_thread = 0;
};

/// A stay of the calling thread in the daemon. A visitor may come again while it stays, as from a callback that the
/// radio makes inside a call.
class daemon_visit_t {
  public:
    daemon_visit_t() : daemon(gate_t::instance().enter()) {}
    ~daemon_visit_t() {
        if (daemon != nullptr) {
            gate_t::instance().leave();
        }
    }
    daemon_visit_t(const daemon_visit_t&) = delete;
    daemon_visit_t& operator=(const daemon_visit_t&) = delete;

    daemon_t* get() const { return daemon; }
    daemon_t* operator->() const { return daemon; }
    explicit operator bool() const { return daemon != nullptr; }

  private:
    daemon_t* const daemon;
};
