// The daemon's beginning and end.
#include <ctime>
#include <exception>
#include <utility>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

namespace {

constexpr const char* incoming_directory_names[] = {ZPD_INCOMING_DIRECTORY, nullptr};

/// The log file that a former daemon left open: the next one goes on with it, so that no line is written twice.
qmlog::log_file* former_file_log = nullptr;

/// What destroyed daemons left behind.
struct remains_t {
    std::unique_ptr<machine_t> machine;
    std::unique_ptr<sender_thread_t> sender;
    std::unique_ptr<activation_state_t> activation_state;
    std::unique_ptr<signal_plain_t> sender_signal;
};

std::list<remains_t>& all_remains() {
    static auto* const remains = new std::list<remains_t>;
    return *remains;
}

}  // namespace

void daemon_t::init() {
    gate_t& gate = gate_t::instance();
    const std::unique_lock turn = gate.take_turn();
    qmlog::logging_enabled = true;
    QM_TRACE(0, qmlog::process_log().set_process_name("ZPD"));
    QM_NOTICE("START");
    QM_DEBUG("");
    // A second start finds the daemon running and leaves it so: it may hold messages and the radio.
    if (global_daemon_object == nullptr) {
        gate.open(make);
    } else {
        global_daemon_object->restore_logging_switch();
    }
    QM_DEBUG("");
}

daemon_t* daemon_t::make() {
    try {
        return new daemon_t;
    } catch (const std::exception& error) {
        QM_CRITICAL_ERROR("can't create the daemon: %s", error.what());
        return nullptr;
    }
}

/// Every start turns the logging switch on: it goes back to what the options say.
void daemon_t::restore_logging_switch() {
    EnterCriticalSection(control_lock.get());  // not by a lock_guard_t, whose lines tell of requests
    qmlog::logging_enabled = log_enabled != 0;
    LeaveCriticalSection(control_lock.get());
}

void daemon_t::deinit() {
    QM_DEBUG("");
    {
        gate_t& gate = gate_t::instance();
        const std::unique_lock turn = gate.take_turn();
        if (global_daemon_object != nullptr) {
            gate.close();
            signal_plain_t* const signal = global_daemon_object->sender_signal.get();
            delete global_daemon_object;
            global_daemon_object = nullptr;
            signal->raise();  // a sender that sleeps need not do so for an hour to find that out
        }
    }
    QM_DEBUG("");
}

daemon_t::daemon_t() {
    all_remains().emplace_front();  // now: the end is to need no memory
    file_log = std::exchange(former_file_log, nullptr);
    try {
        QM_DEBUG("constructor first line; daemon_t *this=0x%X", identity(this));
        open_settings();
        QM_DEBUG("constructor fifth line; daemon_t *this=0x%X", identity(this));
        activation_state = std::make_unique<activation_state_t>(*settings);
        const bool is_active = activation_state->is_active();
        QM_DEBUG("activation_state: %s", yes_or_no(is_active, "YES", "NO"));
        incoming_directory = incoming_directory_names;
        control_lock.create();
        sender_signal = std::make_unique<signal_plain_t>();
        machine = std::make_unique<machine_t>(this);
        read_settings();
        seed_stored_names(static_cast<uint32_t>(time(nullptr)));
        start_ril();
        start_sender_thread();  // the last that may fail: its thread uses what is here
        QM_DEBUG("constructor last line; daemon_t *this=0x%X", identity(this));
    } catch (const std::exception&) {
        former_file_log = file_log;
        all_remains().pop_front();
        throw;
    }
}

daemon_t::~daemon_t() {
    control_lock.reset();
    settings.reset();
    incoming_messages.clear();
    displaced_ril_requests.clear();  // while those that displaced them are in the table
    while (!pending_ril_requests.empty()) {
        delete pending_ril_requests.begin()->second;  // takes its entry away
    }
    messages.clear();
    displaced_messages.clear();
    former_file_log = file_log;
    all_remains().front() = {std::move(machine), std::move(sender), std::move(activation_state),
                             std::move(sender_signal)};
}

void daemon_t::start_sender_thread() {
    sender = std::make_unique<sender_thread_t>();
    sender->signal = sender_signal.get();
    DWORD id = 0;
    HANDLE handle = CreateThread(nullptr, 0, sender_thread_start, sender.get(), 0, &id);
    if (handle != nullptr) {
        sender->handle = handle;
        sender->id = id;
    }
    QM_INFO("started thread id=0x%08X", sender->id);
}
