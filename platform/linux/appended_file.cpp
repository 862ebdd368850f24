#include "platform/linux/appended_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/linux/stream.h"

namespace platform {

namespace {

std::atomic<uint64_t> bound{UINT64_MAX};

class appended_file_t final : public stream_file_t {
  public:
    appended_file_t(std::filesystem::path path, int access_mode)
        : path_(std::move(path)),
          older_(path_.native() + ".1"),
          folder_(path_.parent_path()),
          flags_(access_mode | O_CREAT | O_APPEND) {}

    /// False with errno; the file that was open before then stays.
    bool open() noexcept;
    bool write(const char* octets, size_t size) noexcept override;
    bool close() noexcept override { return true; }

  private:
    void open_again() noexcept;
    bool has_name(struct stat& status) const noexcept;
    bool turn() const noexcept;

    const std::filesystem::path path_;
    const std::filesystem::path older_;
    const std::filesystem::path folder_;
    const int flags_;
    struct stat opened_ {};  // as it was then
};

bool appended_file_t::open() noexcept {
    base::descriptor_t file = open_regular_file(path_, flags_);
    if (!file || fstat(file.get(), &opened_) != 0) {
        return false;
    }
    file_ = std::move(file);
    return true;
}

bool appended_file_t::write(const char* octets, size_t size) noexcept {
    struct stat status {};
    if (!has_name(status)) {
        open_again();
        status = opened_;
    }
    const auto length = static_cast<uint64_t>(status.st_size);
    if (length != 0 && length + size > bound && turn()) {
        open_again();
    }
    return write_all(descriptor(), octets, size);
}

void appended_file_t::open_again() noexcept {
    if (!open() && errno == ENOENT && mkdir(folder_.c_str(), 0777) == 0) {
        static_cast<void>(open());
    }
}

/// Whether the name is still this file's; then `status` tells of it.
bool appended_file_t::has_name(struct stat& status) const noexcept {
    return lstat(path_.c_str(), &status) == 0 && status.st_ino == opened_.st_ino && status.st_dev == opened_.st_dev;
}

/// Renames the file, unless another thread has meanwhile. Whether the name is free.
bool appended_file_t::turn() const noexcept {
    static std::mutex mutex;  // it has no destructor: threads that outlive main may still log
    const std::lock_guard lock(mutex);
    struct stat status {};
    return !has_name(status) || rename(path_.c_str(), older_.c_str()) == 0;
}

}  // namespace

void bound_appended_files(uint64_t octets) {
    bound = octets;
}

FILE* open_appended_file(const std::filesystem::path& path, bool update) {
    auto file = std::make_unique<appended_file_t>(path, update ? O_RDWR : O_WRONLY);
    return file->open() ? open_stream(std::move(file), update ? "a+" : "a") : nullptr;
}

}  // namespace platform
