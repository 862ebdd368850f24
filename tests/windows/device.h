/* The device manager that desktop Windows has not, for a client that is compiled with this header in front: "ZPD1:" is
 * the driver that `device_driver` leads to, a file that does not exist when it is null, and time passes in
 * `device_sleep`. Everything else is the system's. */
#pragma once

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef BOOL (*device_driver_t)(DWORD open, DWORD code, BYTE* input, DWORD input_length, BYTE* output,
                                DWORD output_length, DWORD* returned);
extern device_driver_t device_driver;
extern void (*device_sleep)(void);

int client_main(int argc, wchar_t** argv);

HANDLE device_open(LPCWSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                   DWORD flags, HANDLE model);
BOOL device_control(HANDLE device, DWORD code, void* input, DWORD input_length, void* output, DWORD output_length,
                    DWORD* returned, OVERLAPPED* overlapped);
void device_pause(DWORD milliseconds);

#ifdef __cplusplus
}
#else
#define wmain client_main
#define CreateFileW device_open
#define DeviceIoControl device_control
#define Sleep device_pause
#endif
