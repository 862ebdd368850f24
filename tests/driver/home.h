/// A home for one phone: an empty object store and an empty registry, which this process has until the object goes.
#pragma once

#include <filesystem>

class home_t {
  public:
    home_t();
    ~home_t();
    home_t(const home_t&) = delete;
    home_t& operator=(const home_t&) = delete;

    /// The folder that stands for the top of the object store.
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};
