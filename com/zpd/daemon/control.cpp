// Control requests: from the code to the handler, under the control lock and on the caller's behalf.
#include <algorithm>
#include <exception>
#include <iterator>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

static_assert(ZPD_IOCTL_VERSION == 0x02000004 && ZPD_IOCTL_PIM_CONTACTS_VAR == 0x02000038);

void foo_two(daemon_t& daemon, request_t& request);

struct daemon_t::control_t {
    uint32_t code;
    const char* name;
    void (*handle)(daemon_t& daemon, request_t& request);

    /// Runs the handler. Running out of memory there fails the request.
    void serve(daemon_t& daemon, request_t& request) const;

    static const control_t all[];
    static const control_t* find(uint32_t code);
};

#define ZPD_CONTROL(code, call)                                         \
    {                                                                   \
        code, #code, [](daemon_t& daemon, request_t& request) { call; } \
    }

const daemon_t::control_t daemon_t::control_t::all[] = {
    ZPD_CONTROL(ZPD_IOCTL_VERSION, daemon.version(request)),
    ZPD_CONTROL(ZPD_IOCTL_ACTIVATION, daemon.activation(request)),
    ZPD_CONTROL(ZPD_IOCTL_APPLICATION, daemon.application(request)),
    ZPD_CONTROL(ZPD_IOCTL_LAUNCH_APP, daemon.launch_application(request)),
    ZPD_CONTROL(ZPD_IOCTL_SEND_MESSAGE, daemon.send_or_count_datagrams(request, false)),
    ZPD_CONTROL(ZPD_IOCTL_COUNT_DATAGRAMS, daemon.send_or_count_datagrams(request, true)),
    ZPD_CONTROL(ZPD_IOCTL_MESSAGE_LIST, daemon.message_list(request)),
    ZPD_CONTROL(ZPD_IOCTL_MESSAGE_STATUS, daemon.message_status(request)),
    ZPD_CONTROL(ZPD_IOCTL_MESSAGE_CLOSE, daemon.message_close(request)),
    ZPD_CONTROL(ZPD_IOCTL_FOO, foo_two(daemon, request)),
    ZPD_CONTROL(ZPD_IOCTL_LOG_OPTIONS, daemon.set_log_options(request)),
    ZPD_CONTROL(ZPD_IOCTL_RIL_CAPACITY, daemon.set_ril_capacity(request)),
    ZPD_CONTROL(ZPD_IOCTL_INCOMING_DIR_SIZE, daemon.set_incoming_dir_size(request)),
    ZPD_CONTROL(ZPD_IOCTL_PIM_CONTACTS_VAR, daemon.get_pim_contacts_var(request)),
};

#undef ZPD_CONTROL

const daemon_t::control_t* daemon_t::control_t::find(uint32_t code) {
    const auto* found =
        std::find_if(std::begin(all), std::end(all), [code](const auto& row) { return row.code == code; });
    return found != std::end(all) ? found : nullptr;
}

void daemon_t::control_t::serve(daemon_t& daemon, request_t& request) const {
    try {
        handle(daemon, request);
    } catch (const std::exception& error) {
        QM_CRITICAL_ERROR("%s failed: %s", name, error.what());
        request.output.reset();
        request.fail(ZPD_ERROR_NOT_ENOUGH_MEMORY);
    }
}

bool daemon_t::iocontrol(uint32_t code, request_t& request) {
    QM_DEBUG("");
    {
        const daemon_visit_t daemon;
        if (daemon) {
            const control_guard_t guard(*daemon.get(), "iocontrol");
            ZPD_DUMP_STATES(*daemon->machine);
            if (!CeImpersonateCurrentProcess()) {
                QM_ERROR("CeImpersonateCurrentProcess() failed");
                request.fail(ZPD_ERROR_CANNOT_IMPERSONATE);
            } else {
                if (const control_t* control = control_t::find(code)) {
                    QM_DEBUG("%s", control->name);
                    control->serve(*daemon.get(), request);
                } else {
                    QM_ERROR("Unknown ioctl opcode 0x%08X", code);
                    request.fail(ZPD_ERROR_INVALID_FUNCTION);
                }
                CeRevertToSelf();
            }
            ZPD_DUMP_STATES(*daemon->machine);
        } else {
            QM_ERROR("global_daemon_object not available");
            request.fail(ZPD_ERROR_DEVICE_NOT_AVAILABLE);
        }
    }
    if (request.output.has_overflown()) {
        request.output.reset();
        request.fail(ZPD_ERROR_INSUFFICIENT_BUFFER);
    }
    if (request.error != ERROR_SUCCESS) {
        SetLastError(request.error);
    }
    return request.error == ERROR_SUCCESS;
}

void daemon_t::version(request_t& request) {
    if (request.input.unread() != 0) {
        QM_ERROR("trailing input bytes");
        return request.fail(ZPD_ERROR_INVALID_DATA);
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
