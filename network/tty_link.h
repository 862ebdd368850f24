/// The name under which a host finds a modem: DIR/<number>, a symbolic link to its tty.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace network {

class tty_link_t {
  public:
    /// Makes the link in one step. Replaces a link that a killed network left there; null, with the reason in `error`,
    /// when anything else stands in its place.
    static std::unique_ptr<tty_link_t> make(const std::filesystem::path& link, const std::string& tty,
                                            std::string* error);
    /// Removes the link, unless somebody has put another in its place.
    ~tty_link_t();
    tty_link_t(const tty_link_t&) = delete;
    tty_link_t& operator=(const tty_link_t&) = delete;

  private:
    tty_link_t(std::filesystem::path link, std::string tty) : link_(std::move(link)), tty_(std::move(tty)) {}

    const std::filesystem::path link_;
    const std::string tty_;
};

}  // namespace network
