/// A tty taken for this process alone, in raw mode and not blocking. All its settings are set; none is put back, and a
/// close leaves DTR as it is.
///
/// Three marks keep others off: flock on the tty, which ends with its holder; a lock file; and TIOCEXCL, save on a
/// pseudo-terminal, where it would outlive a holder that was killed. Not thread-safe.
#pragma once

#include <filesystem>
#include <string>

#include "base/descriptor.h"
#include "radio/line_settings.h"
#include "radio/lock_file.h"

namespace radio {

class tty_t {
  public:
    tty_t() = default;
    ~tty_t();
    tty_t(const tty_t&) = delete;
    tty_t& operator=(const tty_t&) = delete;

    /// Returns an empty text, or what failed, on what, and why. It must not be open.
    [[nodiscard]] std::string open(const std::string& path, const line_settings_t& line = {});
    /// Frees the tty for others. Idempotent.
    void close();
    /// -1 when it is not open.
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }

  private:
    [[nodiscard]] std::string take(const std::string& path);
    [[nodiscard]] std::string take_lock_file(const std::string& path);

    base::descriptor_t descriptor_;
    bool exclusive_ = false;
    lock_file_t lock_file_;
    bool warned_ = false;  // that there is no lock file: once, however often the tty is opened
};

/// The link in `folder` that points at the tty; empty when none does.
std::string link_to(const std::string& tty, const std::filesystem::path& folder);

}  // namespace radio
