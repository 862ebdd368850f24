// The RIL functions and the attachment of the modem: the state of the process, and the checks at the boundary.
#include <ril.h>

#include <memory>
#include <mutex>
#include <utility>

#include "radio/attach_modem.h"
#include "radio/callbacks.h"
#include "radio/modem.h"
#include "radio/modem_state.h"
#include "radio/ril_message.h"

namespace {

using radio::callbacks_t;
using radio::modem_t;
using radio::session_pointer_t;
using radio::session_t;

constexpr DWORD only_port = 1;

// Never destroyed: threads of a process that exits without detach_modem still use it.
struct state_t {
    std::mutex attaching;  // held by attach_modem and detach_modem, before the other
    std::mutex mutex;      // guards all below
    std::shared_ptr<callbacks_t> callbacks;
    std::unique_ptr<modem_t> modem;
    modem_t* starting = nullptr;  // in attach_modem
    bool cancelled = false;
    session_pointer_t session;
    uintptr_t last_handle = 0;
    HRESULT last_request = 0;
};

state_t& state() {
    static state_t* const instance = new state_t;
    return *instance;
}

bool present(const state_t& now) {
    return now.modem && !now.modem->lost();
}

// S_OK for the open session.
HRESULT check(const state_t& now, HRIL session) {
    if (!now.modem) {
        return RIL_E_RADIONOTPRESENT;
    }
    return now.session && now.session->handle == session ? S_OK : E_INVALIDARG;
}

void set_starting(modem_t* modem) {
    const std::lock_guard lock(state().mutex);
    state().starting = modem;
    if (state().cancelled) {
        modem->cancel_start();
    }
}

HRESULT next_request(state_t& now) {
    now.last_request = now.last_request == INT32_MAX ? 1 : now.last_request + 1;
    return now.last_request;
}

}  // namespace

namespace radio {

std::string attach_modem(const modem_options_t& options) {
    const std::lock_guard attaching(state().attaching);
    {
        const std::lock_guard lock(state().mutex);
        if (state().modem) {
            return "cannot attach " + options.tty + ": a modem is attached already";
        }
    }
    const auto callbacks = std::make_shared<callbacks_t>();
    auto modem = std::make_unique<modem_t>(*callbacks);  // gone before the callbacks that it refers to
    set_starting(modem.get());
    std::string error = modem->start(options);
    const std::lock_guard lock(state().mutex);
    state().starting = nullptr;
    if (std::exchange(state().cancelled, false)) {
        return "cancelled";
    }
    if (error.empty()) {
        state().callbacks = callbacks;
        state().modem = std::move(modem);
    }
    return error;
}

void cancel_attach() {
    const std::lock_guard lock(state().mutex);
    state().cancelled = true;
    if (state().starting != nullptr) {
        state().starting->cancel_start();
    }
}

void detach_modem() {
    const std::lock_guard attaching(state().attaching);
    std::shared_ptr<callbacks_t> callbacks;
    std::unique_ptr<modem_t> modem;
    {
        const std::lock_guard lock(state().mutex);
        callbacks = std::move(state().callbacks);
        modem = std::move(state().modem);
        state().session.reset();
        state().cancelled = false;
    }
    if (modem) {
        callbacks->stop_messages();
        modem->stop();
        callbacks->stop();
    }
}

card_counts_t card_counts() {
    const std::lock_guard lock(state().mutex);
    return state().modem ? state().modem->card_counts() : card_counts_t{};
}

std::optional<modem_state_t> modem_state() {
    const std::lock_guard lock(state().mutex);
    return state().modem ? std::optional(state().modem->state()) : std::nullopt;
}

uint64_t modem_busy_since() {
    const std::lock_guard lock(state().mutex);
    return state().modem ? state().modem->busy_since() : 0;
}

}  // namespace radio

// One session at a time: a new one takes the place of one that was never ended.
HRESULT RIL_Initialize(DWORD index, RILRESULTCALLBACK result, RILNOTIFYCALLBACK notify, DWORD notification_classes,
                       DWORD parameter, HRIL* session) {
    if (index != only_port || result == nullptr || session == nullptr) {
        return E_INVALIDARG;
    }
    state_t& now = state();
    const std::lock_guard lock(now.mutex);
    if (!present(now)) {
        return RIL_E_RADIONOTPRESENT;
    }
    if (now.session) {
        now.callbacks->end(now.session);
    }
    now.session = std::make_shared<session_t>(session_t{.handle = reinterpret_cast<HRIL>(++now.last_handle),
                                                        .result = result,
                                                        .notify = notify,
                                                        .classes = notify == nullptr ? 0 : notification_classes,
                                                        .parameter = parameter});
    now.modem->set_session(now.session);
    *session = now.session->handle;
    return S_OK;
}

HRESULT RIL_Deinitialize(HRIL session) {
    state_t& now = state();
    session_pointer_t ended;
    std::shared_ptr<callbacks_t> callbacks;
    {
        const std::lock_guard lock(now.mutex);
        if (!now.session || now.session->handle != session) {
            return E_INVALIDARG;
        }
        ended = std::move(now.session);
        callbacks = now.callbacks;
        callbacks->end(ended);
        now.modem->set_session(nullptr);
    }
    // Without the lock: the callback that is waited for may call the radio.
    callbacks->drain(ended);
    return S_OK;
}

// Also while the modem is away: its loss may not be known yet to the caller, who takes a refusal for final, and a
// failed result for a reason to try again.
HRESULT RIL_SendMsg(HRIL session, const RILMESSAGE* message, DWORD options) {
    state_t& now = state();
    const std::lock_guard lock(now.mutex);
    const HRESULT checked = check(now, session);
    if (checked != S_OK) {
        return checked;
    }
    std::optional<radio::submission_t> submission = message == nullptr ? std::nullopt : radio::submission_of(*message);
    if (!submission) {
        return E_INVALIDARG;
    }
    const HRESULT request = next_request(now);
    const bool more_follow = (options & RIL_SENDOPT_PERSISTLINK) != 0;
    return now.modem->submit(now.session, request, std::move(*submission), more_follow) ? request : E_FAIL;
}

HRESULT RIL_GetCurrentSystemType(HRIL session) {
    state_t& now = state();
    const std::lock_guard lock(now.mutex);
    const HRESULT checked = present(now) ? check(now, session) : RIL_E_RADIONOTPRESENT;
    if (checked != S_OK) {
        return checked;
    }
    const HRESULT request = next_request(now);
    now.modem->query_system_type(now.session, request);
    return request;
}
