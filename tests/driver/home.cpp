#include "tests/driver/home.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/linux/home.h"

namespace fs = std::filesystem;

/// In memory where there is room for it: the driver flushes each setting to the disk.
home_t::home_t() {
    std::string name = (fs::exists("/dev/shm") ? "/dev/shm" : testing::TempDir()) + "/zpd-driver-XXXXXX";
    if (!mkdtemp(name.data())) {
        std::abort();
    }
    path_ = name;
    EXPECT_EQ(platform::set_home(path_), "");
}

home_t::~home_t() {
    std::filesystem::remove_all(path_);
}
