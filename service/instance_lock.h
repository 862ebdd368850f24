/// A lock file that says which process has something: the home of a phone, or a device. The kernel frees the lock when
/// the process ends, however it ends; a file left behind by a kill is taken over.
#pragma once

#include <filesystem>
#include <string>

#include "base/descriptor.h"

class instance_lock_t {
  public:
    instance_lock_t() = default;
    /// Removes the file, if the lock was taken.
    ~instance_lock_t();
    instance_lock_t(const instance_lock_t&) = delete;
    instance_lock_t& operator=(const instance_lock_t&) = delete;

    /// Takes the lock and writes this process's id into the file. Returns an empty text, or why not; `what` ("home /x
    /// is in use") begins that text when another process has it, whose id follows.
    [[nodiscard]] std::string take(const std::filesystem::path& file, const std::string& what);

    /// How it is told that `holder` ("process 123") has it, with what a second phone needs.
    static std::string taken(const std::string& what, const std::string& holder);

  private:
    std::filesystem::path file_;
    base::descriptor_t descriptor_;
};
