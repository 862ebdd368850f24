// The sender thread, and the network type that it depends on.
#include <algorithm>
#include <exception>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"
#include "com/zpd/daemon/ril_requests.h"

namespace {

// Milliseconds.
constexpr uint32_t idle_wait = 3'600'000;
constexpr uint32_t send_back_off = 5'000;
constexpr uint32_t network_back_off = 10'000;
constexpr uint32_t longest_wait = 0x1000000;

// The second holds a bit, 0x400, that no row of the table below names: deliberately.
constexpr uint32_t cdma_types = 0xC7;
constexpr uint32_t gsm_types = 0x738;

struct system_type_t {
    uint32_t value;
    const char* name;
};

constexpr system_type_t system_types[] = {
    {0x00000001, "RIL_SYSTEMTYPE_IS95A"},        {0x00000002, "RIL_SYSTEMTYPE_IS95B"},
    {0x00000004, "RIL_SYSTEMTYPE_1XRTTPACKET"},  {0x00000008, "RIL_SYSTEMTYPE_GSM"},
    {0x00000010, "RIL_SYSTEMTYPE_GPRS"},         {0x00000020, "RIL_SYSTEMTYPE_EDGE"},
    {0x00000040, "RIL_SYSTEMTYPE_1XEVDOPACKET"}, {0x00000080, "RIL_SYSTEMTYPE_1XEVDVPACKET"},
    {0x00000100, "RIL_SYSTEMTYPE_UMTS"},         {0x00000200, "RIL_SYSTEMTYPE_HSDPA"},
    {0x00000000, "RIL_SYSTEMTYPE_NONE"},         {0x000000C7, "RIL_SYSTEMTYPE_CDMA"},
    {0x00000007, "RIL_SYSTEMTYPE_CDMA_1X"},      {0x000000C0, "RIL_SYSTEMTYPE_CDMA_EVDX"},
    {0x00000338, "RIL_SYSTEMTYPE_GSMUMTS"},      {0x000007FF, "RIL_SYSTEMTYPE_ALL"},
};

const char* availability(bool value) {
    return yes_or_no(value, "YES");
}

}  // namespace

uint64_t sender_thread_t::now() {
    const uint32_t tick = GetTickCount();
    if (tick < last_tick) {
        carry += uint64_t{1} << 32;
    }
    last_tick = tick;
    return carry + tick;
}

void sender_thread_t::arm(uint32_t milliseconds) {
    deadline = now() + milliseconds;
    deadline_armed = true;
}

uint32_t sender_thread_t::time_left() {
    const uint64_t time = now();
    return time >= deadline ? 0 : static_cast<uint32_t>(std::min<uint64_t>(deadline - time, longest_wait));
}

DWORD WINAPI daemon_t::sender_thread_start(LPVOID parameter) {
    const qmlog::log_stay_t stay;  // it may outlast the program's main
    sender_thread(*static_cast<sender_thread_t*>(parameter));
    return 0;
}

void daemon_t::sender_thread(sender_thread_t& sender) {
    uint32_t wait = 0;
    while (true) {
        if (wait < 1) {
            sender.signal->after_wait(WAIT_TIMEOUT);
        } else {
            sender.signal->private_sleep(wait);
        }
        sender.signal->clear();

        const daemon_visit_t daemon;
        if (!daemon || daemon->sender.get() != &sender) {
            return;  // its daemon is gone
        }
        const control_guard_t guard(*daemon.get(), "sender_thread");
        try {
            wait = daemon->sender_round();
        } catch (const std::exception& error) {
            QM_CRITICAL_ERROR("round not finished: %s", error.what());
            wait = send_back_off;
        }
        if (sender.stop) {
            return;
        }
    }
}

daemon_t::control_guard_t::waker_t::~waker_t() {
    if (daemon.wakes_sender && daemon.wakes_sender.exchange(false)) {
        daemon.sender_signal->raise();
    }
}

bool daemon_t::can_dispatch() const {
    return !machine->state_queued->fifo.empty() &&
           machine->state_rilled->elements.size() < machine->state_rilled->capacity;
}

/// One decision of the sender; returns how long to wait for the next one. After a failed result the first retry comes
/// at once, and the following ones a back-off apart.
uint32_t daemon_t::sender_round() {
    ZPD_DUMP_STATES(*machine);
    if (sender->deadline_armed) {
        if (const uint32_t left = sender->time_left(); left != 0) {
            return left;
        }
        sender->deadline_armed = false;
    }
    if (gsm_available || cdma_available) {
        if (can_dispatch()) {
            machine->state_dispatcher->go_to(machine->state_queued->fifo.front());
        }
        if (!last_send_failed) {
            return can_dispatch() ? 0 : idle_wait;
        }
        sender->arm(send_back_off);
    } else {
        send_network_type_request();
        sender->arm(network_back_off);
    }
    return sender->time_left();
}

void daemon_t::send_network_type_request() {
    if (!ensure_ril_session()) {
        return;
    }
    const HRESULT result = RIL_GetCurrentSystemType(hril);
    const auto reference = static_cast<uint32_t>(result);
    if (result < 0) {
        QM_CRITICAL_ERROR("can't start RIL_GetCurrentSystemType request, error=0x%08X", reference);
        return;
    }
    QM_DEBUG("creating ril_request_get_current_system_type_t object, daemon_t *this=0x%X ref=0x%X", identity(this),
             reference);
    new ril_request_get_current_system_type_t(this, reference);  // registers itself, and is found by its result
}

void daemon_t::ril_request_get_current_system_type_t::process_result() {
    log_result();
    if (data.size() < sizeof data32) {
        QM_ERROR("no 32 bit data field available");
        return;
    }
    daemon->update_system_type(data32);
}

void daemon_t::update_system_type(uint32_t system_type) {
    QM_NOTICE("Availability bit mask: data32=0x%08X", system_type);
    for (const auto& [value, name] : system_types) {
        QM_NOTICE("0x%08X=%-30s --> %s", value, name, availability((value & system_type) != 0));
    }
    gsm_available = (system_type & gsm_types) != 0;
    cdma_available = (system_type & cdma_types) != 0;
    QM_NOTICE("System type: GSM: %s; CDMA: %s;", availability(gsm_available), availability(cdma_available));
    if (gsm_available || cdma_available) {
        wake_sender();
    }
}
