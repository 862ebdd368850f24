// What clients switch and start: the activation, the registered applications, the launch of an application.
#include <aygshell.h>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

void daemon_t::activation(request_t& request) {
    uint8_t mode;
    if (!request.input.get_byte(mode)) {
        QM_ERROR("can't read parameter 'mode'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    // A set request without room for its answer is a query that cannot be answered, deliberately: it changes nothing.
    if (mode != 0 && request.output.room() != 0) {
        uint8_t new_status;
        if (!request.input.get_byte(new_status)) {
            QM_ERROR("can't read parameter 'new_status'");
            return request.fail(ZPD_ERROR_INVALID_DATA);
        }
        if (new_status >= 2) {
            QM_ERROR("invalid parameter new_status=%d", new_status);
            return request.fail(ZPD_ERROR_INVALID_DATA);
        }
        QM_DEBUG("current activation status: %d; new status: %d", activation_state->status(), new_status);
        activation_state->set_status(new_status != 0);
        QM_DEBUG("changed activation status: %d", activation_state->status());
    }
    request.output.put_byte(static_cast<uint8_t>(activation_state->status()));
}

void daemon_t::application(request_t& request) {
    uint8_t mode;
    if (!request.input.get_byte(mode)) {
        QM_ERROR("can't read parameter 'mode'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    if (mode == ZPD_APPLICATION_LIST) {
        request.output.put_string(activation_state->list_apps());
    } else if (mode == ZPD_APPLICATION_REGISTER) {
        std::string app;
        if (!request.input.get_string(app)) {
            QM_ERROR("can't read parameter 'app'");
            return request.fail(ZPD_ERROR_INVALID_DATA);
        }
        const std::string list = activation_state->register_app(app);
        QM_DEBUG("registered applications: '%s'", list.c_str());
    } else if (mode == ZPD_APPLICATION_CLEAR) {
        activation_state->unregister_all();
    } else {
        QM_ERROR("invalid mode=%d>2 parameter", mode);
        request.fail(ZPD_ERROR_INVALID_DATA);
    }
}

void daemon_t::launch_application(request_t& request) {
    wide_string_t uri;
    if (!request.input.get_string16(uri)) {
        QM_ERROR("can't read 'uri' input parameter");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    QM_DEBUG("URI='%s'", narrow(uri).c_str());
    HANDLE output = nullptr;
    BSTR text = SysAllocString(uri.c_str());
    const uint32_t result = SHLaunchApplicationForURI(text, &output);
    SysFreeString(text);
    if (result != 0) {
        QM_DEBUG("can't start application: error 0x%08X", result);
        request.fail(ZPD_ERROR_LAUNCH_FAILED);
    }
}
