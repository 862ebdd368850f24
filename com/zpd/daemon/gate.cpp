#include "com/zpd/daemon/gate.h"

#include <cstddef>
#include <new>

daemon_t* global_daemon_object = nullptr;

gate_t& gate_t::instance() {
    alignas(gate_t) static std::byte storage[sizeof(gate_t)];  // it takes no memory that could be missing
    static auto* const gate = new (storage) gate_t;
    return *gate;
}

void gate_t::open(daemon_t* (*make)()) {
    {
        const std::lock_guard lock(mutex);
        state = opening;
        opening_thread = GetCurrentThreadId();
    }
    daemon_t* const made = make();
    {
        const std::lock_guard lock(mutex);
        global_daemon_object = made;
        state = made != nullptr ? opened : closed;
    }
    changed.notify_all();
}

void gate_t::close() {
    std::unique_lock lock(mutex);
    state = closed;
    changed.wait(lock, [this] { return visitors == 0; });
}

daemon_t* gate_t::enter() {
    std::unique_lock lock(mutex);
    if (state == opening && opening_thread == GetCurrentThreadId()) {
        return nullptr;
    }
    changed.wait(lock, [this] { return state != opening; });
    if (state != opened) {
        return nullptr;
    }
    ++visitors;
    return global_daemon_object;
}

void gate_t::leave() {
    const std::lock_guard lock(mutex);
    if (--visitors == 0) {
        changed.notify_all();
    }
}
