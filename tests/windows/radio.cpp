#include "tests/windows/radio.h"

#include <cstdlib>

// The calls of tests/driver/scripted_radio.cpp, which is compiled with these names.
extern "C" {
decltype(RIL_Initialize) scripted_RIL_Initialize;
decltype(RIL_Deinitialize) scripted_RIL_Deinitialize;
decltype(RIL_SendMsg) scripted_RIL_SendMsg;
decltype(RIL_GetCurrentSystemType) scripted_RIL_GetCurrentSystemType;
}

std::atomic<DWORD> asking_thread{0};

namespace {

HRESULT ask(HRIL session) {
    asking_thread = GetCurrentThreadId();
    return scripted_RIL_GetCurrentSystemType(session);
}

const bool connected = [] {
    const HMODULE ril = LoadLibraryW(L"ril.dll");
    const FARPROC answer_by = ril == nullptr ? nullptr : GetProcAddress(ril, "ril_answer_by");
    if (answer_by == nullptr) {
        std::abort();
    }
    const radio_calls_t calls{scripted_RIL_Initialize, scripted_RIL_Deinitialize, scripted_RIL_SendMsg, ask};
    reinterpret_cast<ril_answer_by_t>(reinterpret_cast<void*>(answer_by))(calls);
    return true;
}();

}  // namespace
