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

using temporary_name_t = std::array<char, 48>;  // ended by a zero; empty for none

temporary_name_t new_temporary() noexcept {
    static std::atomic<unsigned> count{0};
    temporary_name_t name{};
    static_cast<void>(std::snprintf(name.data(), name.size(), "%s%d-%u", temporary_prefix.data(), getpid(), ++count));
    return name;
}

class whole_file_t final : public stream_file_t {
  public:
    /// The file's path, and where its name begins in it, in that folder.
    whole_file_t(base::descriptor_t folder, std::string path, size_t name_at)
        : folder_(std::move(folder)), path_(std::move(path)), name_at_(name_at) {}

    ~whole_file_t() override {
        if (is_temporary()) {
            unlinkat(folder_.get(), temporary_.data(), 0);
        }
    }

    /// Takes O_WRONLY or O_RDWR; false with errno.
    bool open(int access_mode);
    bool write(const char* octets, size_t size) noexcept override;
    bool close() noexcept override;

  private:
    bool open_nameless(int flags);
    bool link_as(const char* name) const noexcept;
    bool appear() noexcept;
    bool rename_temporary() noexcept;
    bool take_back() const noexcept;
    const char* name() const { return path_.c_str() + name_at_; }
    bool is_temporary() const { return temporary_[0] != '\0'; }

    const base::descriptor_t folder_;
    std::string path_;
    const size_t name_at_;
    temporary_name_t temporary_{};  // the name that the file has meanwhile
    int error_ = 0;                 // errno of what failed first
};

bool whole_file_t::open(int access_mode) {
    const int flags = access_mode | O_CLOEXEC;
    if (open_nameless(flags)) {
        return true;
    }
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {  // open(2): the file system has no O_TMPFILE
        return false;
    }
    const temporary_name_t temporary = new_temporary();
    file_ = base::descriptor_t(fails("open") ? -1
                                             : openat(folder_.get(), temporary.data(), flags | O_CREAT | O_EXCL, 0666));
    if (file_) {
        temporary_ = temporary;
    }
    return static_cast<bool>(file_);
}

/// Without /proc such a file could not get its name.
bool whole_file_t::open_nameless(int flags) {
    static const bool has_proc = access("/proc/self/fd", X_OK) == 0;
    if (!has_proc) {
        errno = EOPNOTSUPP;
        return false;
    }
    file_ = base::descriptor_t(fails("O_TMPFILE") ? -1 : openat(folder_.get(), ".", flags | O_TMPFILE, 0666));
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
    if (!sync_file(descriptor())) {
        return false;
    }
    note_appearing(path_);
    if (is_temporary()) {
        return rename_temporary();
    }
    if (link_as(name())) {
        return sync_folder(folder_) || take_back();
    }
    if (errno != EEXIST) {
        return false;
    }
    const temporary_name_t temporary = new_temporary();
    if (!link_as(temporary.data())) {
        return false;
    }
    temporary_ = temporary;
    return rename_temporary();
}

/// By the descriptor alone where the host lets this process (open(2): before Linux 6.10 a privileged one), which is
/// faster than by /proc.
bool whole_file_t::link_as(const char* name) const noexcept {
    if (fails("linkat")) {
        return false;
    }
    if (!fails("AT_EMPTY_PATH") && linkat(descriptor(), "", folder_.get(), name, AT_EMPTY_PATH) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        return false;
    }
    std::array<char, 32> self{};
    static_cast<void>(std::snprintf(self.data(), self.size(), "/proc/self/fd/%d", descriptor()));
    return linkat(AT_FDCWD, self.data(), folder_.get(), name, AT_SYMLINK_FOLLOW) == 0;
}

bool whole_file_t::rename_temporary() noexcept {
    struct stat status {};
    const bool replaces = fstatat(folder_.get(), name(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (fails("rename") || renameat(folder_.get(), temporary_.data(), folder_.get(), name()) != 0) {
        return false;
    }
    temporary_ = {};
    return sync_folder(folder_) || (!replaces && take_back());
}

/// False, with the errno of what made it necessary.
bool whole_file_t::take_back() const noexcept {
    const int reason = errno;
    unlinkat(folder_.get(), name(), 0);
    errno = reason;
    return false;
}

/// Removes what an earlier process left, before this one first has a temporary name in the folder.
void clear_once(std::string_view folder) {
    static auto& mutex = *new std::mutex;  // threads that outlive main may still write
    static auto& cleared = *new std::set<std::string, std::less<>>;
    const std::lock_guard lock(mutex);
    if (cleared.contains(folder)) {
        return;
    }
    cleared.emplace(folder);
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
        if (entry->path().filename().native().starts_with(temporary_prefix)) {
            unlink(entry->path().c_str());
        }
    }
}

/// Whether the name is free, or a regular file's that may be written; else errno tells what is in the way.
bool may_take(const place_t& place) {
    if (place.error != 0) {
        errno = place.error;
        return errno == ENOENT;
    }
    if (!S_ISREG(place.status.st_mode)) {
        errno = S_ISDIR(place.status.st_mode) ? EISDIR : EACCES;
        return false;
    }
    return faccessat(place.at(), place.name(), W_OK, AT_EACCESS) == 0;
}

}  // namespace

FILE* open_whole_file(place_t& place, bool update) {
    if (!may_take(place)) {
        return nullptr;
    }
    base::descriptor_t folder = take_folder(place);
    if (!folder) {
        return nullptr;
    }
    clear_once(std::string_view(place.path).substr(0, place.name_at));
    auto file = std::make_unique<whole_file_t>(std::move(folder), place.path, place.name_at);
    return file->open(update ? O_RDWR : O_WRONLY) ? open_stream(std::move(file), update ? "w+" : "w") : nullptr;
}

bool is_temporary_name(std::u16string_view name) {
    return name.size() >= temporary_prefix.size() &&
           std::equal(temporary_prefix.begin(), temporary_prefix.end(), name.begin());
}

}  // namespace platform
