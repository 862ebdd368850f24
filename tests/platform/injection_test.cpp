#include <aygshell.h>

#include <functional>

#include "tests/platform/fixture.h"

class injection_test_t : public home_test_t {};

// The calls whose failures the driver's tests do not go through.
TEST_F(injection_test_t, makes_a_call_fail_with_the_chosen_error) {
    constexpr DWORD chosen = 4242;
    WIN32_FIND_DATAW entry{};
    SYSTEMTIME time{};
    FILETIME file_time{};
    // Each call tells the error with which it failed, in whichever way it tells failure.
    const auto last = [](bool has_failed) { return has_failed ? GetLastError() : 0; };
    const std::pair<const char*, std::function<DWORD()>> calls[] = {
        {"CloseHandle", [&] { return last(!CloseHandle(nullptr)); }},
        {"SystemTimeToFileTime", [&] { return last(!SystemTimeToFileTime(&time, &file_time)); }},
        {"CeRevertToSelf", [&] { return last(!CeRevertToSelf()); }},
        {"WideCharToMultiByte",
         [&] { return last(WideCharToMultiByte(CP_UTF8, 0, TEXT("a"), 1, nullptr, 0, nullptr, nullptr) == 0); }},
        {"MultiByteToWideChar", [&] { return last(MultiByteToWideChar(CP_UTF8, 0, "a", 1, nullptr, 0) == 0); }},
        {"GetFileAttributesW", [&] { return last(GetFileAttributesW(TEXT("\\d")) == INVALID_FILE_ATTRIBUTES); }},
        {"FindFirstFileW", [&] { return last(FindFirstFileW(TEXT("\\*"), &entry) == INVALID_HANDLE_VALUE); }},
        {"FindNextFileW", [&] { return last(!FindNextFileW(nullptr, &entry)); }},
        {"FindClose", [&] { return last(!FindClose(nullptr)); }},
        {"SysAllocString", [&] { return last(SysAllocString(TEXT("x")) == nullptr); }},
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
    platform::testing::no_failures();
    EXPECT_TRUE(CreateDirectoryW(TEXT("e"), nullptr));
    platform::testing::fail_calls("RegQueryValueExW", ERROR_MORE_DATA);
    BYTE data[4];
    DWORD size = sizeof(data);
    EXPECT_EQ(RegQueryValueExW(HKEY_LOCAL_MACHINE, TEXT("v"), nullptr, nullptr, data, &size), ERROR_MORE_DATA);
    EXPECT_GT(size, sizeof(data));
}
