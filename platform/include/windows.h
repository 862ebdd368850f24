/// The services of Windows CE that the driver uses, under their platform names: types, constants and prototypes as the
/// platform publishes them. On Linux platform/linux implements them; on Windows the system's own header takes this
/// one's place. Only what is used is declared.
///
/// Common to all calls: a failing call leaves its reason for GetLastError() of the calling thread, save the registry
/// calls, which return it. A succeeding call leaves the last error alone. Wide text is UTF-16, zero-terminated.
#pragma once

#include <cstdint>
#include <cstdio>

#define TEXT(text) ZPD_WIDE_TEXT(text)  // the argument may be a macro, as in the system's own header
#define ZPD_WIDE_TEXT(text) u##text
#define WINAPI
#define CALLBACK

using BOOL = int32_t;
using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using LONG = int32_t;
using HRESULT = int32_t;
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPVOID = void*;
using LPCVOID = const void*;
using HANDLE = void*;
using HKEY = struct registry_key_handle*;

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_ASSOCIATION = 1155;

/// Why the loader calls DllMain.
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

/// The calling thread's last error. Each thread has its own, 0 at its start.
DWORD GetLastError();
void SetLastError(DWORD error);

/// The calling thread's identifier, unique in the process while the thread runs, never 0.
DWORD GetCurrentThreadId();

/// Starts `start(parameter)` on a new thread. `stack_size` 0 is the default; `flags` are ignored. The thread runs on
/// when its handle is closed. Returns the handle (the caller closes it), or null; the thread's id goes to `thread_id`
/// unless that is null.
using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID parameter);
HANDLE CreateThread(void* security, DWORD stack_size, LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                    DWORD* thread_id);

/// Closes a handle made by CreateThread or CreateEventW. A handle that is none fails with ERROR_INVALID_HANDLE.
BOOL CloseHandle(HANDLE handle);

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~uintptr_t{0});

/// A recursive lock. Storage belongs to the caller, from Initialize to Delete; only its owner may leave it.
struct CRITICAL_SECTION {
    void* implementation;
};
void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);

/// Makes an unnamed event; null on failure. A manual-reset event stays set until it is reset, an auto-reset one lets a
/// single wait through. `security` and `name` must be null.
HANDLE CreateEventW(void* security, BOOL manual_reset, BOOL initial_state, LPCWSTR name);

constexpr DWORD EVENT_RESET = 2;
constexpr DWORD EVENT_SET = 3;
/// Sets or resets an event; what SetEvent and ResetEvent are made of on Windows CE.
BOOL EventModify(HANDLE event, DWORD function);
inline BOOL SetEvent(HANDLE event) {
    return EventModify(event, EVENT_SET);
}
inline BOOL ResetEvent(HANDLE event) {
    return EventModify(event, EVENT_RESET);
}

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 0x102;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
/// Waits until an event is set (or a thread has ended), at most `milliseconds` of GetTickCount's time; 0 only looks.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

/// Milliseconds since some start, wrapping to 0 after 0xFFFFFFFF.
DWORD GetTickCount();

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;  // 1..12
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
/// 100 ns units since 1601-01-01 UTC.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
/// The wall clock, UTC.
void GetSystemTime(SYSTEMTIME* time);
/// Fails with ERROR_INVALID_PARAMETER for a date that does not exist.
BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* file_time);

/// Takes on the identity of the process that made the current request, for the calling thread; CeRevertToSelf gives it
/// back. Each successful call is reverted exactly once; a revert without one fails with ERROR_INVALID_FUNCTION.
BOOL CeImpersonateCurrentProcess();
BOOL CeRevertToSelf();

/// UTF-16 to and from UTF-8 (`code_page` is CP_UTF8 and `flags` 0; the two default arguments of the first are null). A
/// surrogate pair becomes one code point; a lone surrogate, and each ill-formed sequence of UTF-8, U+FFFD. Lengths
/// count code units; -1 means zero-terminated, the terminator included. With an output length of 0 nothing is written.
/// Returns the number of units of the whole result, 0 on failure (ERROR_INSUFFICIENT_BUFFER when it does not fit).
constexpr DWORD CP_UTF8 = 65001;
int WideCharToMultiByte(DWORD code_page, DWORD flags, LPCWSTR wide, int wide_length, char* narrow, int narrow_length,
                        const char* default_char, BOOL* used_default_char);
int MultiByteToWideChar(DWORD code_page, DWORD flags, const char* narrow, int narrow_length, LPWSTR wide,
                        int wide_length);

/// The registry. Key paths are joined by backslashes, one at the front is allowed; paths and value names compare
/// without case. Each call returns ERROR_SUCCESS or the reason why not.
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(uintptr_t{0x80000002});
constexpr DWORD KEY_QUERY_VALUE = 0x1;
constexpr DWORD KEY_READ = 0x20019;
constexpr DWORD KEY_WRITE = 0x20006;
constexpr DWORD REG_CREATED_NEW_KEY = 1;
constexpr DWORD REG_OPENED_EXISTING_KEY = 2;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
LONG RegCreateKeyExW(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options, DWORD access,
                     void* security, HKEY* key, DWORD* disposition);
/// ERROR_FILE_NOT_FOUND when there is no such key.
LONG RegOpenKeyExW(HKEY root, LPCWSTR path, DWORD options, DWORD access, HKEY* key);
LONG RegCloseKey(HKEY key);
/// With a null `data` only `type` and `size` are told. ERROR_MORE_DATA when `data` is shorter than the value (`size`
/// then tells the length needed), ERROR_FILE_NOT_FOUND when there is no such value. Each output may be null, save
/// `size` where `data` is given.
LONG RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);
LONG RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
/// Returns when all values of the key are on stable storage.
LONG RegFlushKey(HKEY key);

/// Files. Paths are Windows CE paths, rooted at the top of the object store ("\Application Data\x").
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
constexpr int MAX_PATH = 260;
/// Without the times and the size: nobody asks for them, and to know them takes a look at each entry of a folder.
struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    WCHAR cFileName[MAX_PATH];
};
/// ERROR_ALREADY_EXISTS when there is one, ERROR_PATH_NOT_FOUND when its parent is missing.
BOOL CreateDirectoryW(LPCWSTR path, void* security);
/// Not for directories: ERROR_ACCESS_DENIED.
BOOL DeleteFileW(LPCWSTR path);
/// INVALID_FILE_ATTRIBUTES on failure.
DWORD GetFileAttributesW(LPCWSTR path);
/// Enumerates the entries that match a pattern ("\dir\*"); "." and ".." are not listed. INVALID_HANDLE_VALUE when none
/// does. FindNextFileW ends with ERROR_NO_MORE_FILES. FindClose frees the handle.
HANDLE FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* entry);
BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* entry);
BOOL FindClose(HANDLE find);
/// The C runtime's fopen for a Windows CE path. The caller closes the stream with fclose. Null on failure, errno tells.
FILE* _wfopen(LPCWSTR path, LPCWSTR mode);

/// Text for the shell: owned by the caller, freed by SysFreeString (null is allowed there).
using BSTR = WCHAR*;
BSTR SysAllocString(LPCWSTR text);
void SysFreeString(BSTR text);
