/// The files of the driver's log in a phone's home: the one that is written, and the older one that the service keeps
/// when it begins a new one.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "base/descriptor.h"

class log_files_t {
  public:
    using use_t = std::function<void(std::string_view line)>;

    explicit log_files_t(const std::filesystem::path& home);

    const std::filesystem::path& path() const { return path_; }

    /// Passes each line to `use`, without its end: the first time those of both files, later those that have come
    /// since. False when there is no log.
    bool read(const use_t& use);
    /// Whether another file has the name by now. In the one that is read a line on its way may still come for a moment.
    bool has_turned() const;
    /// Then: reads that one to its end, and goes on in the other.
    void turn(const use_t& use);

  private:
    void read_open(const use_t& use);
    void read_to_end(const use_t& use);

    std::filesystem::path path_;
    base::descriptor_t open_;
    bool is_first_read_ = true;
    std::string unfinished_;  // a line whose end is not written yet
};
