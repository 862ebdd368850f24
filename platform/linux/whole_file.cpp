#include "platform/linux/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "platform/linux/file_writes.h"
#include "platform/linux/injection.h"
#include "platform/linux/stream.h"
#include "platform/linux/sync.h"

namespace platform {

namespace {

constexpr std::string_view temporary_prefix = ".zpd-unfinished-";

std::filesystem::path new_temporary(const std::filesystem::path& folder) {
    static std::atomic<unsigned> count{0};
    return folder / (std::string(temporary_prefix) + std::to_string(getpid()) + "-" + std::to_string(++count));
}

class whole_file_t final : public stream_file_t {
  public:
    explicit whole_file_t(const std::filesystem::path& path)
        : path_(path), folder_(path.parent_path()), temporary_(new_temporary(folder_)) {}

    ~whole_file_t() override {
        if (is_temporary_) {
            unlink(temporary_.c_str());
        }
    }

    /// Takes O_WRONLY or O_RDWR; false with errno.
    bool open(int access_mode);
    bool write(const char* octets, size_t size) noexcept override;
    bool close() noexcept override;

  private:
    bool open_nameless(int flags);
    bool link_as(const std::filesystem::path& name) const noexcept;
    bool appear() noexcept;
    bool rename_temporary(const base::descriptor_t& folder) noexcept;
    bool take_back() const noexcept;

    std::filesystem::path path_;
    const std::filesystem::path folder_;
    const std::filesystem::path temporary_;
    bool is_temporary_ = false;  // whether the file has that name
    int error_ = 0;              // errno of what failed first
};

bool whole_file_t::open(int access_mode) {
    const int flags = access_mode | O_CLOEXEC;
    if (open_nameless(flags)) {
        return true;
    }
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {  // open(2): the file system has no O_TMPFILE
        return false;
    }
    file_ = base::descriptor_t(fails("open") ? -1 : ::open(temporary_.c_str(), flags | O_CREAT | O_EXCL, 0666));
    is_temporary_ = static_cast<bool>(file_);
    return is_temporary_;
}

/// Without /proc such a file could not get its name.
bool whole_file_t::open_nameless(int flags) {
    file_ = base::descriptor_t(fails("O_TMPFILE") ? -1 : ::open(folder_.c_str(), flags | O_TMPFILE, 0666));
    if (file_ && access("/proc/self/fd", X_OK) != 0) {
        file_.close();
        errno = EOPNOTSUPP;
    }
    return static_cast<bool>(file_);
}

bool whole_file_t::write(const char* octets, size_t size) noexcept {
    if (error_ == 0 && !write_all(descriptor(), octets, size)) {
        error_ = errno;
    }
    if (error_ != 0) {
        errno = error_;
    }
    return error_ == 0;
}

bool whole_file_t::close() noexcept {
    if (error_ == 0 && appear()) {
        note_written();
        return true;
    }
    error_ = error_ != 0 ? error_ : errno;
    note_failure(std::move(path_), error_);
    errno = error_;
    return false;
}

bool whole_file_t::appear() noexcept {
    const base::descriptor_t folder = open_folder(folder_);
    if (!folder || !sync_file(descriptor())) {
        return false;
    }
    note_appearing(path_);
    if (is_temporary_) {
        return rename_temporary(folder);
    }
    if (link_as(path_)) {
        return sync_folder(folder) || take_back();
    }
    is_temporary_ = errno == EEXIST && link_as(temporary_);
    return is_temporary_ && rename_temporary(folder);
}

bool whole_file_t::link_as(const std::filesystem::path& name) const noexcept {
    std::array<char, 32> self{};
    static_cast<void>(std::snprintf(self.data(), self.size(), "/proc/self/fd/%d", descriptor()));
    return !fails("linkat") && linkat(AT_FDCWD, self.data(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

bool whole_file_t::rename_temporary(const base::descriptor_t& folder) noexcept {
    struct stat status {};
    const bool replaces = lstat(path_.c_str(), &status) == 0;
    if (fails("rename") || rename(temporary_.c_str(), path_.c_str()) != 0) {
        return false;
    }
    is_temporary_ = false;
    return sync_folder(folder) || (!replaces && take_back());
}

/// False, with the errno of what made it necessary.
bool whole_file_t::take_back() const noexcept {
    const int reason = errno;
    unlink(path_.c_str());
    errno = reason;
    return false;
}

/// Removes what an earlier process left, before this one first has a temporary name in the folder.
void clear_once(const std::filesystem::path& folder) {
    static auto& mutex = *new std::mutex;  // threads that outlive main may still write
    static auto& cleared = *new std::set<std::filesystem::path>;
    const std::lock_guard lock(mutex);
    if (!cleared.insert(folder).second) {
        return;
    }
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
        if (entry->path().filename().native().starts_with(temporary_prefix)) {
            unlink(entry->path().c_str());
        }
    }
}

/// Whether the name is free, or a regular file's that may be written; else errno tells what is in the way.
bool may_take(const std::filesystem::path& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EACCES;
        return false;
    }
    return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

}  // namespace

FILE* open_whole_file(const std::filesystem::path& path, bool update) {
    if (!may_take(path)) {
        return nullptr;
    }
    auto file = std::make_unique<whole_file_t>(path);
    clear_once(path.parent_path());
    return file->open(update ? O_RDWR : O_WRONLY) ? open_stream(std::move(file), update ? "w+" : "w") : nullptr;
}

bool is_temporary_name(std::u16string_view name) {
    return name.size() >= temporary_prefix.size() &&
           std::equal(temporary_prefix.begin(), temporary_prefix.end(), name.begin());
}

}  // namespace platform
