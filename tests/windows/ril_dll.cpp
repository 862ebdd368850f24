#include "tests/windows/radio.h"

namespace {
radio_calls_t radio;
}

extern "C" __declspec(dllexport) void ril_answer_by(const radio_calls_t& calls) {
    radio = calls;
}

HRESULT RIL_Initialize(DWORD index, RILRESULTCALLBACK result, RILNOTIFYCALLBACK notify, DWORD notification_classes,
                       DWORD parameter, HRIL* session) {
    return radio.initialize(index, result, notify, notification_classes, parameter, session);
}

HRESULT RIL_Deinitialize(HRIL session) {
    return radio.deinitialize(session);
}

HRESULT RIL_SendMsg(HRIL session, const RILMESSAGE* message, DWORD options) {
    return radio.send(session, message, options);
}

HRESULT RIL_GetCurrentSystemType(HRIL session) {
    return radio.ask(session);
}
