// ril.dll of the tests passes each call on to the program that uses it: to its scripted radio, which is compiled with
// these names and exported (scripted_radio.def).
#include <ril.h>

namespace {

template <class call_t>
call_t* scripted(const char* name) {
    return reinterpret_cast<call_t*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(nullptr), name)));
}

}  // namespace

/// The thread that asked last for the network's type: the driver's sender.
extern "C" {
__declspec(dllexport) DWORD asking_thread = 0;
}

HRESULT RIL_Initialize(DWORD index, RILRESULTCALLBACK result, RILNOTIFYCALLBACK notify, DWORD notification_classes,
                       DWORD parameter, HRIL* session) {
    return scripted<decltype(RIL_Initialize)>("scripted_RIL_Initialize")(index, result, notify, notification_classes,
                                                                         parameter, session);
}

HRESULT RIL_Deinitialize(HRIL session) {
    return scripted<decltype(RIL_Deinitialize)>("scripted_RIL_Deinitialize")(session);
}

HRESULT RIL_SendMsg(HRIL session, const RILMESSAGE* message, DWORD options) {
    return scripted<decltype(RIL_SendMsg)>("scripted_RIL_SendMsg")(session, message, options);
}

HRESULT RIL_GetCurrentSystemType(HRIL session) {
    asking_thread = GetCurrentThreadId();
    return scripted<decltype(RIL_GetCurrentSystemType)>("scripted_RIL_GetCurrentSystemType")(session);
}
