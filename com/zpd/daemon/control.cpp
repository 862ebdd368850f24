// Control requests: from the code to the handler, under the control lock and on the caller's behalf.
#include <iterator>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

static_assert(ZPD_IOCTL_VERSION == 0x02000004 && ZPD_IOCTL_PIM_CONTACTS_VAR == 0x02000038);

void foo_two(daemon_t& daemon, request_t& request);

struct daemon_t::control_t {
    uint32_t code;
    const char* name;
    void (*handle)(daemon_t& daemon, request_t& request);

    template <void (daemon_t::*handler)(request_t&)>
    static void call(daemon_t& daemon, request_t& request) {
        (daemon.*handler)(request);
    }
    template <bool count_only>
    static void send_or_count(daemon_t& daemon, request_t& request) {
        daemon.send_or_count_datagrams(request, count_only);
    }

    static const control_t all[];
};

#define ZPD_CONTROL(code, handler) \
    { code, #code, handler }

const daemon_t::control_t daemon_t::control_t::all[] = {
    ZPD_CONTROL(ZPD_IOCTL_VERSION, call<&daemon_t::version>),
    ZPD_CONTROL(ZPD_IOCTL_ACTIVATION, call<&daemon_t::activation>),
    ZPD_CONTROL(ZPD_IOCTL_APPLICATION, call<&daemon_t::application>),
    ZPD_CONTROL(ZPD_IOCTL_LAUNCH_APP, call<&daemon_t::launch_application>),
    ZPD_CONTROL(ZPD_IOCTL_SEND_MESSAGE, send_or_count<false>),
    ZPD_CONTROL(ZPD_IOCTL_COUNT_DATAGRAMS, send_or_count<true>),
    ZPD_CONTROL(ZPD_IOCTL_MESSAGE_LIST, call<&daemon_t::message_list>),
    ZPD_CONTROL(ZPD_IOCTL_MESSAGE_STATUS, call<&daemon_t::message_status>),
    ZPD_CONTROL(ZPD_IOCTL_MESSAGE_CLOSE, call<&daemon_t::message_close>),
    ZPD_CONTROL(ZPD_IOCTL_FOO, foo_two),
    ZPD_CONTROL(ZPD_IOCTL_LOG_OPTIONS, call<&daemon_t::set_log_options>),
    ZPD_CONTROL(ZPD_IOCTL_RIL_CAPACITY, call<&daemon_t::set_ril_capacity>),
    ZPD_CONTROL(ZPD_IOCTL_INCOMING_DIR_SIZE, call<&daemon_t::set_incoming_dir_size>),
    ZPD_CONTROL(ZPD_IOCTL_PIM_CONTACTS_VAR, call<&daemon_t::get_pim_contacts_var>),
};

#undef ZPD_CONTROL

bool daemon_t::iocontrol(uint32_t code, request_t& request) {
    QM_DEBUG("");
    {
        const daemon_visit_t daemon;
        if (daemon) {
            const lock_guard_t guard(daemon->control_lock.get(), "iocontrol");
            ZPD_DUMP_STATES(*daemon->machine);
            if (CeImpersonateCurrentProcess()) {
                dispatch(*daemon.get(), code, request);
                CeRevertToSelf();
            } else {
                QM_ERROR("CeImpersonateCurrentProcess() failed");
                request.error = ERROR_CANNOT_IMPERSONATE;
            }
            ZPD_DUMP_STATES(*daemon->machine);
        } else {
            QM_ERROR("global_daemon_object not available");
            request.error = ERROR_DEVICE_NOT_AVAILABLE;
        }
    }
    if (request.output.has_overflown()) {
        request.output.reset();
        request.error = ERROR_INSUFFICIENT_BUFFER;
    }
    if (request.error != ERROR_SUCCESS) {
        SetLastError(request.error);
    }
    return request.error == ERROR_SUCCESS;
}

void daemon_t::dispatch(daemon_t& daemon, uint32_t code, request_t& request) {
    for (const control_t& control : control_t::all) {
        if (control.code == code) {
            QM_DEBUG("%s", control.name);
            control.handle(daemon, request);
            return;
        }
    }
    QM_ERROR("Unknown ioctl opcode 0x%08X", code);
    request.error = ERROR_INVALID_FUNCTION;
}

/// The first parameter of the codes that both tell and change something; 0 asks only to be told. False when it is
/// missing.
bool daemon_t::read_mode(request_t& request, uint8_t& mode) {
    if (!request.input.get_byte(mode)) {
        QM_ERROR("can't read parameter 'mode'");
        request.error = ERROR_INVALID_DATA;
        return false;
    }
    return true;
}

void daemon_t::version(request_t& request) {
    if (request.input.unread() != 0) {
        QM_ERROR("trailing input bytes");
        request.error = ERROR_INVALID_DATA;
        return;
    }
    request.output.put_uint32(ZPD_INTERFACE_VERSION);
}

/// The test hook of ZPD_IOCTL_FOO: it exercises the typed access to a value that is deliberately not registered.
void foo_two(daemon_t& daemon, request_t& /*request*/) {
    QM_NOTICE("foo()");
    for (int i = 0; i < 4; ++i) {
        uint32_t value = 0;
        (void)daemon.settings->get_uint32("foo_two", value);  // each miss is logged, and that is all
        (void)daemon.settings->set_uint32("foo_two", value - 3);
    }
    QM_NOTICE("foo done");
}
