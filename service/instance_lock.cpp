#include "service/instance_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "base/own_file.h"
#include "base/text.h"

namespace {

std::string holder(int descriptor) {
    std::array<char, 16> text{};
    const ssize_t length = pread(descriptor, text.data(), text.size(), 0);
    const std::string id(text.data(), length > 0 ? static_cast<size_t>(length) : 0);
    const size_t digits = id.find_first_not_of("0123456789");
    return id.empty() || digits == 0 ? "another process" : "process " + id.substr(0, digits);
}

/// Whether the open file still is the one at that path: its holder removes it when it ends.
bool is_at(int descriptor, const std::filesystem::path& file) {
    struct stat open_file {};
    struct stat named {};
    return fstat(descriptor, &open_file) == 0 && stat(file.c_str(), &named) == 0 && open_file.st_ino == named.st_ino &&
           open_file.st_dev == named.st_dev;
}

}  // namespace

instance_lock_t::~instance_lock_t() {
    if (descriptor_) {
        unlink(file_.c_str());
    }
}

std::string instance_lock_t::taken(const std::string& what, const std::string& holder) {
    return fmt::format("{} by {}; a second phone needs a --home and a --device of its own", what, holder);
}

std::string instance_lock_t::take(const std::filesystem::path& file, const std::string& what) {
    for (;;) {
        std::string problem;
        base::descriptor_t opened = base::open_own_file(file, O_RDWR | O_CREAT, problem);
        if (!opened) {
            return problem;
        }
        if (flock(opened.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK) {
                return taken(what, holder(opened.get()));
            }
            return fmt::format("cannot lock {}: {}", file.native(), base::errno_text(errno));
        }
        if (!is_at(opened.get(), file)) {
            continue;
        }
        const std::string id = fmt::format("{}\n", getpid());
        if (ftruncate(opened.get(), 0) != 0 || pwrite(opened.get(), id.data(), id.size(), 0) < 0) {
            return fmt::format("cannot write the lock file {}: {}", file.native(), base::errno_text(errno));
        }
        file_ = file;
        descriptor_ = std::move(opened);
        return {};
    }
}
