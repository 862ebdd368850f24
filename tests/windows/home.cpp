// The top of the object store is the root of the drive P:, which is there for these tests alone; the registry is a key
// of the user's.
#include "tests/driver/home.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

namespace fs = std::filesystem;

namespace {

const fs::path drive = "P:\\";
const std::wstring registry_path = L"Software\\zpd-driver-" + std::to_wstring(GetCurrentProcessId());

void empty_drive() {
    std::error_code none;  // the root of a drive, without even "." and "..", is no folder when nothing is in it
    for (const auto& entry : fs::directory_iterator(drive, none)) {
        std::error_code error;
        fs::remove_all(entry.path(), error);
        EXPECT_FALSE(error) << entry.path() << ": " << error.message();
    }
}

}  // namespace

home_t::home_t() : path_(drive) {
    empty_drive();
    EXPECT_TRUE(SetCurrentDirectoryW(drive.c_str())) << "drive P: is missing, error " << GetLastError();
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, registry_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              nullptr),
              0);
    EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, key), 0);
    RegCloseKey(key);
}

home_t::~home_t() {
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, registry_path.c_str());
    empty_drive();
}
