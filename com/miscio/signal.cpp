#include "com/miscio/signal.h"

#include <utility>

#include "com/miscio/text.h"
#include "com/qmlog/api2.h"

abstract_signal_t::~abstract_signal_t() {
    if (has_event()) {
        CloseHandle(event);
    }
}

void abstract_signal_t::private_sleep(DWORD timeout) {
    if (!has_event()) {
        return;
    }
    const uint32_t result = WaitForSingleObject(event, timeout);
    if (result == WAIT_FAILED) {
        const uint32_t error = GetLastError();
        QM_ERROR("WaitForSingleObject() failed, error=0x%08X", error);
        return;
    }
    if (result != WAIT_OBJECT_0 && result != WAIT_TIMEOUT) {
        QM_ERROR("WaitForSingleObject() returned unexpected result 0x%X", result);
        return;
    }
    QM_INFO("WaitForSingleObject() returned '%s'", result == WAIT_OBJECT_0 ? "WAIT_OBJECT_0" : "WAIT_TIMEOUT");
    after_wait(result);
}

void abstract_signal_t::raise() {
    if (has_event() && !EventModify(event, EVENT_SET)) {
        const uint32_t error = GetLastError();
        QM_ERROR("SetEvent() failed, last_error=0x%08X", error);
    }
}

void abstract_signal_t::clear() {
    if (has_event() && !EventModify(event, EVENT_RESET)) {
        const uint32_t error = GetLastError();
        QM_ERROR("ResetEvent() failed, last_error=0x%08X", error);
    }
}

signal_plain_t::signal_plain_t() {
    event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!has_event()) {
        const uint32_t error = GetLastError();
        QM_ERROR("CreateEvent() failed: error=0x%08X", error);
    }
}

void critical_section_t::create() {
    auto fresh = std::make_unique<CRITICAL_SECTION>();
    InitializeCriticalSection(fresh.get());
    section = std::move(fresh);
}

void critical_section_t::reset() {
    if (section != nullptr) {
        DeleteCriticalSection(section.get());
        section.reset();
    }
}

lock_guard_t::lock_guard_t(CRITICAL_SECTION* lock, const char* place) : section(lock) {
    QM_NOTICE("[MUTEX] THREAD=0x%08X|%s: waiting", static_cast<uint32_t>(GetCurrentThreadId()), place);
    if (section != nullptr) {
        EnterCriticalSection(section);
    }
    QM_NOTICE("[MUTEX] THREAD=0x%08X|%s: got it 0x%X", static_cast<uint32_t>(GetCurrentThreadId()), place,
              identity(this));
}

lock_guard_t::~lock_guard_t() {
    QM_NOTICE("[MUTEX] THREAD=0x%08X|%s: release 0x%X", static_cast<uint32_t>(GetCurrentThreadId()), "...",
              identity(this));
    if (section != nullptr) {
        LeaveCriticalSection(section);
    }
}
