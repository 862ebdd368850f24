#include "network/tty_link.h"

#include <fmt/format.h>

#include <system_error>

namespace network {

namespace fs = std::filesystem;

namespace {

/// A network that was killed leaves links to its ttys. The tty is gone, or has become somebody else's since: as the
/// directory is ours alone, no link to a pseudo-terminal in it belongs to a living network.
bool is_left_over(const fs::path& link) {
    std::error_code error;
    const fs::path target = fs::read_symlink(link, error);
    return !error && (target.parent_path() == "/dev/pts" || !fs::exists(link, error));
}

}  // namespace

std::unique_ptr<tty_link_t> tty_link_t::make(const fs::path& link, const std::string& tty, std::string* error) {
    std::error_code failure;
    if (fs::exists(fs::symlink_status(link, failure)) && !is_left_over(link)) {
        *error =
            fmt::format("{}: something else is there already; remove it, or choose another directory", link.string());
        return nullptr;
    }
    const fs::path temporary = link.parent_path() / ("." + link.filename().string() + ".new");
    fs::remove(temporary, failure);
    fs::create_symlink(tty, temporary, failure);
    if (!failure) {
        fs::rename(temporary, link, failure);
    }
    if (failure) {
        *error = fmt::format("cannot make the link {} to {}: {}", link.string(), tty, failure.message());
        return nullptr;
    }
    return std::unique_ptr<tty_link_t>(new tty_link_t(link, tty));
}

tty_link_t::~tty_link_t() {
    std::error_code error;
    if (fs::read_symlink(link_, error) == tty_ && !error) {
        fs::remove(link_, error);
    }
}

}  // namespace network
