/// A folder in memory for a target's files, which goes with the process.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class fuzzed_home_t {
  public:
    fuzzed_home_t() {
        std::string name = "/dev/shm/zpd-fuzz-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        path_ = name;
    }
    ~fuzzed_home_t() {
        std::error_code none;
        std::filesystem::remove_all(path_, none);
    }
    fuzzed_home_t(const fuzzed_home_t&) = delete;
    fuzzed_home_t& operator=(const fuzzed_home_t&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};
