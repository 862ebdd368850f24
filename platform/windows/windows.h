/// The system's own windows.h, and what Windows CE has beyond it or does otherwise. Each function that differs is in
/// the namespace ce, and its plain name leads there.
#pragma once

#define UNICODE
#define WIN32_LEAN_AND_MEAN
// clang-format off
#include_next <windows.h>
#include <oleauto.h>  // the shell's texts: SysAllocString
// clang-format on

#include <cstdio>
#include <cwchar>

// Words that a program may want for its own.
#undef near
#undef far
#undef interface
#undef small

constexpr DWORD EVENT_RESET = 2;
constexpr DWORD EVENT_SET = 3;
/// Sets or resets an event.
BOOL EventModify(HANDLE event, DWORD function);

/// The driver runs in the process of its client and has its identity: what is left is that each thread's impersonations
/// and reverts pair up. A revert without an impersonation fails with ERROR_INVALID_FUNCTION.
BOOL CeImpersonateCurrentProcess();
BOOL CeRevertToSelf();

namespace ce {

/// A registry path may begin with a backslash.
LONG RegCreateKeyExW(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options, REGSAM access,
                     SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* disposition);
LONG RegOpenKeyExW(HKEY root, LPCWSTR path, DWORD options, REGSAM access, HKEY* key);

/// The thread keeps the module that starts it loaded until it ends: it may outlive FreeLibrary.
HANDLE CreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stack_size, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                    DWORD flags, DWORD* thread_id);

/// Enumerates without "." and "..", which Windows CE does not have. FindNextFileW continues so, FindClose ends it.
HANDLE FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* entry);
BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* entry);

/// A stream for "ab" writes where the file ends, however many streams of it there are: that of the C runtime looks for
/// the end first, and lines of two threads meet there.
FILE* _wfopen(LPCWSTR path, LPCWSTR mode);

}  // namespace ce

#define RegCreateKeyExW ce::RegCreateKeyExW
#define RegOpenKeyExW ce::RegOpenKeyExW
#define CreateThread ce::CreateThread
#define FindFirstFileW ce::FindFirstFileW
#define FindNextFileW ce::FindNextFileW
#define _wfopen ce::_wfopen
