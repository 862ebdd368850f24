/// Events that wake a thread, and the scoped lock with its trace. Failures are logged and otherwise ignored.
#pragma once

#include <windows.h>

#include <memory>

/// An event handle. A signal whose event could not be made stays usable: every operation on it does nothing.
class abstract_signal_t {
  public:
    virtual ~abstract_signal_t();
    /// Called after every wait that ended as it should, with WAIT_OBJECT_0 or WAIT_TIMEOUT.
    virtual void after_wait(DWORD result) { (void)result; }
    abstract_signal_t(const abstract_signal_t&) = delete;
    abstract_signal_t& operator=(const abstract_signal_t&) = delete;

    /// Waits until the event is set, at most `timeout` milliseconds. For the one waiting thread.
    void private_sleep(DWORD timeout);
    /// Sets the event. Any thread may.
    void raise();
    /// Resets the event: a raised signal stays raised until then. For the one waiting thread.
    void clear();

  protected:
    abstract_signal_t() = default;
    bool has_event() const { return event != nullptr && event != INVALID_HANDLE_VALUE; }

    HANDLE event = INVALID_HANDLE_VALUE;
};

/// An unnamed manual-reset event, not signalled at first.
class signal_plain_t final : public abstract_signal_t {
  public:
    signal_plain_t();
};

/// A critical section, from its creation to its end.
class critical_section_t {
  public:
    critical_section_t() = default;
    ~critical_section_t() { reset(); }
    critical_section_t(const critical_section_t&) = delete;
    critical_section_t& operator=(const critical_section_t&) = delete;

    void create();
    void reset();
    /// Null before its creation.
    CRITICAL_SECTION* get() const { return section.get(); }

  private:
    std::unique_ptr<CRITICAL_SECTION> section;
};

/// Holds a critical section for a scope, or nothing when there is none, and traces the wait, the grant and the release
/// with the name of the place that locks.
class lock_guard_t {
  public:
    lock_guard_t(CRITICAL_SECTION* section, const char* place);
    ~lock_guard_t();
    lock_guard_t(const lock_guard_t&) = delete;
    lock_guard_t& operator=(const lock_guard_t&) = delete;

  private:
    CRITICAL_SECTION* section;
};
