/// What the tests of the platform share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "platform/linux/home.h"
#include "platform/linux/testing.h"

constexpr DWORD poison = 0xDEADBEEF;

/// A call's result and the last error it left, which was poison before it.
template <typename call_t>
auto poisoned(call_t call) {
    SetLastError(poison);
    const auto result = call();
    return std::pair(result, GetLastError());
}

/// Each test has a folder of its own: `box`/home is the home, the rest of `box` is the world outside.
class home_test_t : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/zpd-platform-XXXXXX";
        box = mkdtemp(name);
        ASSERT_EQ(platform::set_home(box / "home"), "");
    }
    void TearDown() override {
        platform::testing::no_failures();
        std::filesystem::remove_all(box);
    }
    void put(const std::filesystem::path& file, const std::string& text = "x") const {
        std::filesystem::create_directories((box / "home" / file).parent_path());
        std::ofstream(box / "home" / file) << text;
    }

    std::filesystem::path box;
};
