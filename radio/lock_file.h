/// The lock file of a tty, LCK..NAME in /run/lock, which programs of many makers look at before they use one
/// (Filesystem Hierarchy Standard 5.9). It holds the number of its maker's process as text; older programs write the
/// four octets of an integer. Not thread-safe.
#pragma once

#include <filesystem>
#include <string>

namespace radio {

class lock_file_t {
  public:
    lock_file_t() = default;
    /// That of the tty that the path leads to.
    explicit lock_file_t(const std::string& tty);

    /// "process 7 (minicom)": who has it, as a message names it. Empty when that is this process, or none that lives.
    [[nodiscard]] std::string holder() const;

    /// Held: `holder` in words is in `other`. A file whose process is gone is taken over; one that names none yet is
    /// just being written: it is looked at again for a moment, and then counts as held, however old it is.
    enum class taking_t { taken, held, cannot_be_written };
    [[nodiscard]] taking_t take(std::string& other);
    /// Removes the file, if it was taken. Idempotent.
    void give_up();

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    bool taken_ = false;
};

}  // namespace radio
