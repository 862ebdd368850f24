#include "com/zpd/daemon/gate.h"

#include <cstddef>
#include <new>

daemon_t* global_daemon_object = nullptr;

gate_t& gate_t::instance() {
    alignas(gate_t) static std::byte storage[sizeof(gate_t)];  // it takes no memory that could be missing
    static auto* const gate = new (storage) gate_t;
    return *gate;
}

void gate_t::set_state(state_t state) {
    uint32_t now = inside;
    while (!inside.compare_exchange_weak(now, now - now % visitor + state)) {
    }
}

void gate_t::open(daemon_t* (*make)()) {
    {
        const std::lock_guard lock(mutex);
        set_state(opening);
        opening_thread = GetCurrentThreadId();
    }
    daemon_t* const made = make();
    {
        const std::lock_guard lock(mutex);
        global_daemon_object = made;
        set_state(made != nullptr ? opened : closed);
    }
    changed.notify_all();
}

void gate_t::close() {
    std::unique_lock lock(mutex);
    set_state(closed);
    changed.wait(lock, [this] { return inside < visitor; });
}

daemon_t* gate_t::enter() {
    while (true) {
        for (uint32_t now = inside; now % visitor == opened;) {
            if (inside.compare_exchange_weak(now, now + visitor)) {
                return global_daemon_object;
            }
        }
        std::unique_lock lock(mutex);
        if (state() == opening && opening_thread == GetCurrentThreadId()) {
            return nullptr;
        }
        changed.wait(lock, [this] { return state() != opening; });
        if (state() != opened) {
            return nullptr;
        }
    }
}

void gate_t::leave() {
    if (inside.fetch_sub(visitor) == visitor + closed) {
        const std::lock_guard lock(mutex);  // who closes it looks at it, or waits already
        changed.notify_all();
    }
}
