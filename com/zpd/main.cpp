#include "com/zpd/main.h"

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

namespace {

constexpr DWORD the_open_context = 1;

}  // namespace

BOOL WINAPI DllMain(HANDLE /*module*/, DWORD reason, LPVOID /*reserved*/) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            QM_DEBUG("DLL_PROCESS_ATTACH");
            break;
        case DLL_PROCESS_DETACH:
            QM_DEBUG("DLL_PROCESS_DETACH");
            break;
        case DLL_THREAD_ATTACH:
            QM_DEBUG("DLL_THREAD_ATTACH");
            break;
        case DLL_THREAD_DETACH:
            QM_DEBUG("DLL_THREAD_DETACH");
            break;
        default:
            QM_ERROR("UNKNOWN REASON");
    }
    return TRUE;
}

DWORD ZPD_Init(LPCWSTR /*active_key*/, LPCVOID /*bus_context*/) {
    daemon_t::init();
    return 1;
}

BOOL ZPD_Deinit(DWORD /*device*/) {
    QM_DEBUG("");
    daemon_t::deinit();
    return TRUE;
}

DWORD ZPD_Open(DWORD /*device*/, DWORD /*access*/, DWORD /*share_mode*/) {
    QM_DEBUG("");
    return the_open_context;
}

BOOL ZPD_Close(DWORD /*open*/) {
    QM_DEBUG("");
    return TRUE;
}

BOOL ZPD_IOControl(DWORD /*open*/, DWORD code, BYTE* input, DWORD input_length, BYTE* output, DWORD output_length,
                   DWORD* returned) {
    QM_DEBUG("");
    request_t request{{input, input != nullptr ? input_length : 0},
                      {output, output != nullptr ? output_length : 0, returned}};
    if (returned != nullptr) {
        *returned = 0;
    }
    return daemon_t::iocontrol(code, request) ? TRUE : FALSE;
}
