// The daemon's beginning and end, and the gate that everybody passes who enters it.
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <utility>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

daemon_t* global_daemon_object = nullptr;

namespace {

constexpr const char* incoming_directory_names[] = {ZPD_INCOMING_DIRECTORY, nullptr};

/// Visitors hold it shared; the making and the unmaking of the daemon hold it alone. Never destroyed: threads may come
/// until the process ends.
std::shared_mutex& gate() {
    static auto* const the_gate = new std::shared_mutex;
    return *the_gate;
}

/// While somebody waits to be alone, newcomers find no daemon: a stream of them could keep the waiting one out for
/// ever.
std::atomic<bool> turning_away{false};

std::unique_lock<std::shared_mutex> enter_alone() {
    turning_away = true;
    std::unique_lock alone(gate());
    turning_away = false;  // whoever comes from now on waits
    return alone;
}

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

daemon_visit_t::daemon_visit_t() {
    if (!turning_away) {
        stay = std::shared_lock(gate());
        daemon = global_daemon_object;
    }
}

void daemon_t::init() {
    qmlog::logging_enabled = true;
    qmlog::process_log().set_process_name("ZPD");
    QM_NOTICE("START");
    QM_DEBUG("");
    // A second start finds the daemon running and leaves it so: it may hold messages and the radio.
    if (is_running()) {
        restore_logging_switch();
    } else {
        const std::unique_lock alone = enter_alone();
        global_daemon_object = new (std::nothrow) daemon_t;
    }
    QM_DEBUG("");
}

bool daemon_t::is_running() {
    return static_cast<bool>(daemon_visit_t());
}

/// Every start turns the logging switch on: it goes back to what the options say.
void daemon_t::restore_logging_switch() {
    const daemon_visit_t running;
    if (running) {
        EnterCriticalSection(running->control_lock.get());  // not by a lock_guard_t, whose lines tell of requests
        qmlog::logging_enabled = running->log_enabled != 0;
        LeaveCriticalSection(running->control_lock.get());
    }
}

void daemon_t::deinit() {
    QM_DEBUG("");
    {
        const std::unique_lock alone = enter_alone();
        if (global_daemon_object != nullptr) {
            signal_plain_t* const signal = global_daemon_object->sender_signal.get();
            delete global_daemon_object;
            global_daemon_object = nullptr;
            signal->raise();  // a sender that sleeps need not do so for an hour to find that out
        }
    }
    QM_DEBUG("");
}

daemon_t::daemon_t() : file_log(std::exchange(former_file_log, nullptr)) {
    QM_DEBUG("constructor first line; daemon_t *this=0x%X", identity(this));
    open_settings();
    QM_DEBUG("constructor fifth line; daemon_t *this=0x%X", identity(this));
    activation_state = std::make_unique<activation_state_t>(*settings);
    const bool is_active = activation_state->is_active();
    QM_DEBUG("activation_state: %s", yes_or_no(is_active, "YES", "NO"));
    incoming_directory = incoming_directory_names;
    create_lock();
    sender_signal = std::make_unique<signal_plain_t>();
    machine = std::make_unique<machine_t>(this);
    read_settings();
    seed_stored_names(static_cast<uint32_t>(time(nullptr)));
    start_ril();
    start_sender_thread();
    QM_DEBUG("constructor last line; daemon_t *this=0x%X", identity(this));
}

daemon_t::~daemon_t() {
    DeleteCriticalSection(control_lock.get());
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
    all_remains().push_back(
        {std::move(machine), std::move(sender), std::move(activation_state), std::move(sender_signal)});
}

void daemon_t::create_lock() {
    control_lock = std::make_unique<CRITICAL_SECTION>();
    InitializeCriticalSection(control_lock.get());
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
