/// What measurements begin with.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

/// Ends the measurements.
inline void require(const std::string& error) {
    if (!error.empty()) {
        fprintf(stderr, "%s\n", error.c_str());
        exit(1);
    }
}

/// In memory, so that no disk is measured, unless BENCH_FOLDER names where else.
inline std::filesystem::path new_folder() {
    const char* const where = getenv("BENCH_FOLDER");
    std::string name = std::string(where != nullptr ? where : "/dev/shm") + "/zpd-bench-XXXXXX";
    return mkdtemp(name.data());
}
