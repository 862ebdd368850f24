/// The entry points that the device manager calls: a stream-interface driver with the device prefix ZPD. No exception
/// leaves them.
#pragma once

#include <windows.h>

extern "C" {

/// Called by the loader. `reason` is 1 for process attach, 0 for detach, 2 and 3 for threads. Always TRUE.
BOOL WINAPI DllMain(HANDLE module, DWORD reason, LPVOID reserved);

/// Starts the driver, or finds it running and leaves it so; both arguments are ignored. Always 1: what fails is logged,
/// and control requests then say so.
DWORD ZPD_Init(LPCWSTR active_key, LPCVOID bus_context);
/// Ends the driver: when it returns, no client and no callback is inside it any more. A sender thread may still be
/// leaving: it logs, and touches nothing of what has ended. The radio session stays open. The driver may be started
/// again; starts and ends may come from several threads at once. Always TRUE.
BOOL ZPD_Deinit(DWORD device);

/// Any number of clients may hold the device open; they share one context, 1.
DWORD ZPD_Open(DWORD device, DWORD access, DWORD share_mode);
BOOL ZPD_Close(DWORD open);

/// Serves one control request (zpd_ioctl.h), on the caller's thread. The buffers stay the caller's; `*returned` (may be
/// null) is the count of output octets, also when the request fails. FALSE with the last error set on failure.
BOOL ZPD_IOControl(DWORD open, DWORD code, BYTE* input, DWORD input_length, BYTE* output, DWORD output_length,
                   DWORD* returned);
}
