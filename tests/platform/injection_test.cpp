#include <aygshell.h>

#include <functional>

#include "tests/platform/fixture.h"

class injection_test_t : public home_test_t {};

TEST_F(injection_test_t, makes_every_call_fail_with_the_chosen_error) {
    constexpr DWORD chosen = 4242;
    HKEY key = HKEY_LOCAL_MACHINE;
    HKEY opened = nullptr;
    WIN32_FIND_DATAW entry{};
    SYSTEMTIME time{};
    FILETIME file_time{};
    const auto no_thread = [](LPVOID) -> DWORD { return 0; };
    // Each call tells the error with which it failed, in whichever way it tells failure.
    const auto last = [](bool has_failed) { return has_failed ? GetLastError() : 0; };
    const std::pair<const char*, std::function<DWORD()>> calls[] = {
        {"CreateThread", [&] { return last(CreateThread(nullptr, 0, no_thread, nullptr, 0, nullptr) == nullptr); }},
        {"CloseHandle", [&] { return last(!CloseHandle(nullptr)); }},
        {"CreateEventW", [&] { return last(CreateEventW(nullptr, TRUE, FALSE, nullptr) == nullptr); }},
        {"EventModify", [&] { return last(!SetEvent(nullptr)); }},
        {"WaitForSingleObject", [&] { return last(WaitForSingleObject(nullptr, 0) == WAIT_FAILED); }},
        {"SystemTimeToFileTime", [&] { return last(!SystemTimeToFileTime(&time, &file_time)); }},
        {"CeImpersonateCurrentProcess", [&] { return last(!CeImpersonateCurrentProcess()); }},
        {"CeRevertToSelf", [&] { return last(!CeRevertToSelf()); }},
        {"WideCharToMultiByte",
         [&] { return last(WideCharToMultiByte(CP_UTF8, 0, TEXT("a"), 1, nullptr, 0, nullptr, nullptr) == 0); }},
        {"MultiByteToWideChar", [&] { return last(MultiByteToWideChar(CP_UTF8, 0, "a", 1, nullptr, 0) == 0); }},
        {"RegCreateKeyExW",
         [&] { return RegCreateKeyExW(key, TEXT("K"), 0, nullptr, 0, KEY_QUERY_VALUE, nullptr, &opened, nullptr); }},
        {"RegOpenKeyExW", [&] { return RegOpenKeyExW(key, TEXT("K"), 0, KEY_QUERY_VALUE, &opened); }},
        {"RegCloseKey", [&] { return RegCloseKey(key); }},
        {"RegQueryValueExW", [&] { return RegQueryValueExW(key, TEXT("v"), nullptr, nullptr, nullptr, nullptr); }},
        {"RegSetValueExW", [&] { return RegSetValueExW(key, TEXT("v"), 0, REG_BINARY, nullptr, 0); }},
        {"RegFlushKey", [&] { return RegFlushKey(key); }},
        {"CreateDirectoryW", [&] { return last(!CreateDirectoryW(TEXT("\\d"), nullptr)); }},
        {"GetFileAttributesW", [&] { return last(GetFileAttributesW(TEXT("\\d")) == INVALID_FILE_ATTRIBUTES); }},
        {"FindFirstFileW", [&] { return last(FindFirstFileW(TEXT("\\*"), &entry) == INVALID_HANDLE_VALUE); }},
        {"FindNextFileW", [&] { return last(!FindNextFileW(nullptr, &entry)); }},
        {"FindClose", [&] { return last(!FindClose(nullptr)); }},
        {"_wfopen", [&] { return last(_wfopen(TEXT("\\f"), TEXT("wb")) == nullptr && errno == EACCES); }},
        {"SysAllocString", [&] { return last(SysAllocString(TEXT("x")) == nullptr); }},
        {"SHLaunchApplicationForURI", [&] { return SHLaunchApplicationForURI(nullptr, nullptr); }},
    };
    for (const auto& [function, call] : calls) {
        platform::testing::fail_calls(function, chosen);
        EXPECT_EQ(call(), chosen) << function;
    }
}

TEST_F(injection_test_t, counts_calls_and_lets_a_value_grow) {
    platform::testing::fail_calls("CreateDirectoryW", ERROR_ACCESS_DENIED, 2, 1);
    std::string made;
    for (LPCWSTR path : {TEXT("a"), TEXT("b"), TEXT("c"), TEXT("d")}) {
        made += CreateDirectoryW(path, nullptr) ? '1' : '0';
    }
    EXPECT_EQ(made, "1001");
    platform::testing::fail_calls("CreateDirectoryW", ERROR_ACCESS_DENIED, -1);
    EXPECT_FALSE(CreateDirectoryW(TEXT("e"), nullptr));
    EXPECT_FALSE(CreateDirectoryW(TEXT("e"), nullptr));
    platform::testing::no_failures();
    EXPECT_TRUE(CreateDirectoryW(TEXT("e"), nullptr));
    platform::testing::fail_calls("RegQueryValueExW", ERROR_MORE_DATA);
    BYTE data[4];
    DWORD size = sizeof(data);
    EXPECT_EQ(RegQueryValueExW(HKEY_LOCAL_MACHINE, TEXT("v"), nullptr, nullptr, data, &size), ERROR_MORE_DATA);
    EXPECT_GT(size, sizeof(data));
}
