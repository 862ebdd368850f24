#include "bench/idle_radio.h"

RILNOTIFYCALLBACK notify = nullptr;

HRESULT RIL_Initialize(DWORD, RILRESULTCALLBACK, RILNOTIFYCALLBACK on_notify, DWORD, DWORD, HRIL* session) {
    notify = on_notify;
    *session = &notify;
    return S_OK;
}
HRESULT RIL_Deinitialize(HRIL) {
    return S_OK;
}
HRESULT RIL_SendMsg(HRIL, const RILMESSAGE*, DWORD) {
    return E_FAIL;
}
HRESULT RIL_GetCurrentSystemType(HRIL) {
    return 1;
}
