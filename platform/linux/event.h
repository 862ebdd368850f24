/// What WaitForSingleObject waits for: events, and threads, which are set when they end.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <mutex>

#include "platform/linux/handles.h"

namespace platform {

/// Safe from any thread. The handle table and each running call share the ownership.
class waitable_t {
  public:
    enum class kind_t { manual_reset_event, auto_reset_event, thread };

    waitable_t(kind_t of_kind, bool is_set) : kind(of_kind), is_signalled(is_set) {}

    bool is_event() const { return kind != kind_t::thread; }
    void set();
    void reset();
    /// Ends all waits, those to come as well: they fail with ERROR_INVALID_HANDLE, for nobody can set the object any
    /// more.
    void close();
    /// As WaitForSingleObject. The time runs on tick64().
    DWORD wait(DWORD milliseconds);

  private:
    void wake();

    const kind_t kind;
    std::mutex mutex;  // guards the members below; taken under the clock's lock, never the other way round
    std::condition_variable changed;
    bool is_signalled;
    bool is_closed = false;
};

handle_table_t<waitable_t>& waitables();

}  // namespace platform
