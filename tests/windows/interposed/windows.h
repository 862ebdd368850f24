/// The platform as the driver's tests see it: the calls that tests make fail ask first (platform/linux/testing.h), and
/// the clock can be moved. All else, and each call that is not to fail, is the system's.
#pragma once

#include_next <windows.h>

#include <cerrno>
#include <cstdio>
#include <cwchar>

#include "platform/linux/injection.h"

namespace interposed {

DWORD GetTickCount();
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

template <class call_t>
auto fallible(const char* function, call_t call) -> decltype(call()) {
    if (const auto error = platform::injected_failure(function)) {
        SetLastError(*error);
        return {};
    }
    return call();
}

/// For calls that return their error.
template <class call_t>
LONG fallible_registry(const char* function, call_t call) {
    if (const auto error = platform::injected_failure(function)) {
        return static_cast<LONG>(*error);
    }
    return call();
}

template <class call_t>
FILE* fallible_stream(const char* function, call_t call) {
    if (platform::injected_failure(function)) {
        errno = EACCES;
        return nullptr;
    }
    return call();
}

}  // namespace interposed

#undef RegCreateKeyExW
#undef RegOpenKeyExW
#undef CreateThread
#undef _wfopen
#define GetTickCount interposed::GetTickCount
#define WaitForSingleObject interposed::WaitForSingleObject
#define ZPD_FALLIBLE(kind, function, real, ...) interposed::kind(function, [&] { return real(__VA_ARGS__); })
#define CreateEventW(...) ZPD_FALLIBLE(fallible, "CreateEventW", CreateEventW, __VA_ARGS__)
#define CreateThread(...) ZPD_FALLIBLE(fallible, "CreateThread", ce::CreateThread, __VA_ARGS__)
#define CreateDirectoryW(...) ZPD_FALLIBLE(fallible, "CreateDirectoryW", CreateDirectoryW, __VA_ARGS__)
#define EventModify(...) ZPD_FALLIBLE(fallible, "EventModify", EventModify, __VA_ARGS__)
#define CeImpersonateCurrentProcess() ZPD_FALLIBLE(fallible, "CeImpersonateCurrentProcess", CeImpersonateCurrentProcess)
#define RegCreateKeyExW(...) ZPD_FALLIBLE(fallible_registry, "RegCreateKeyExW", ce::RegCreateKeyExW, __VA_ARGS__)
#define RegOpenKeyExW(...) ZPD_FALLIBLE(fallible_registry, "RegOpenKeyExW", ce::RegOpenKeyExW, __VA_ARGS__)
#define RegQueryValueExW(...) ZPD_FALLIBLE(fallible_registry, "RegQueryValueExW", RegQueryValueExW, __VA_ARGS__)
#define RegSetValueExW(...) ZPD_FALLIBLE(fallible_registry, "RegSetValueExW", RegSetValueExW, __VA_ARGS__)
#define RegFlushKey(...) ZPD_FALLIBLE(fallible_registry, "RegFlushKey", RegFlushKey, __VA_ARGS__)
#define RegCloseKey(...) ZPD_FALLIBLE(fallible_registry, "RegCloseKey", RegCloseKey, __VA_ARGS__)
#define _wfopen(...) ZPD_FALLIBLE(fallible_stream, "_wfopen", ce::_wfopen, __VA_ARGS__)
