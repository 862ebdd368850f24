/// The platform as the driver's tests see it: the calls that tests make fail ask first (platform/linux/testing.h), and
/// the clock can be moved. All else, and each call that is not to fail, is the system's.
#pragma once

#include_next <windows.h>

#include <cerrno>
#include <cwchar>
#include <type_traits>

#include "platform/linux/injection.h"

namespace interposed {

DWORD GetTickCount();
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

/// The registry and the shell return their errors, all else leaves them behind.
template <class call_t>
auto fallible(const char* function, call_t call) -> decltype(call()) {
    using result_t = decltype(call());
    const auto error = platform::injected_failure(function);
    if (!error) {
        return call();
    }
    if constexpr (std::is_same_v<result_t, LONG> || std::is_same_v<result_t, DWORD>) {
        return static_cast<result_t>(*error);
    } else {
        SetLastError(*error);
        errno = EACCES;
        return {};
    }
}

}  // namespace interposed

#undef RegCreateKeyExW
#undef RegOpenKeyExW
#undef CreateThread
#undef _wfopen
#define GetTickCount interposed::GetTickCount
#define WaitForSingleObject interposed::WaitForSingleObject
#define ZPD_FALLIBLE(function, real, ...) interposed::fallible(function, [&] { return real(__VA_ARGS__); })
#define CreateEventW(...) ZPD_FALLIBLE("CreateEventW", CreateEventW, __VA_ARGS__)
#define CreateThread(...) ZPD_FALLIBLE("CreateThread", ce::CreateThread, __VA_ARGS__)
#define CreateDirectoryW(...) ZPD_FALLIBLE("CreateDirectoryW", CreateDirectoryW, __VA_ARGS__)
#define EventModify(...) ZPD_FALLIBLE("EventModify", EventModify, __VA_ARGS__)
#define CeImpersonateCurrentProcess() ZPD_FALLIBLE("CeImpersonateCurrentProcess", CeImpersonateCurrentProcess)
#define RegCreateKeyExW(...) ZPD_FALLIBLE("RegCreateKeyExW", ce::RegCreateKeyExW, __VA_ARGS__)
#define RegOpenKeyExW(...) ZPD_FALLIBLE("RegOpenKeyExW", ce::RegOpenKeyExW, __VA_ARGS__)
#define RegQueryValueExW(...) ZPD_FALLIBLE("RegQueryValueExW", RegQueryValueExW, __VA_ARGS__)
#define RegSetValueExW(...) ZPD_FALLIBLE("RegSetValueExW", RegSetValueExW, __VA_ARGS__)
#define RegFlushKey(...) ZPD_FALLIBLE("RegFlushKey", RegFlushKey, __VA_ARGS__)
#define RegCloseKey(...) ZPD_FALLIBLE("RegCloseKey", RegCloseKey, __VA_ARGS__)
#define _wfopen(...) ZPD_FALLIBLE("_wfopen", ce::_wfopen, __VA_ARGS__)
