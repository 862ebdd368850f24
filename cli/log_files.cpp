#include "cli/log_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "com/zpd/zpd_ioctl.h"

namespace {

base::descriptor_t open_to_read(const std::filesystem::path& file) {
    return base::descriptor_t(open(file.c_str(), O_RDONLY | O_CLOEXEC));
}

bool is_same_file(const struct stat& one, const struct stat& other) {
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev;
}

}  // namespace

log_files_t::log_files_t(const std::filesystem::path& home) : path_(home) {
    for (const char* const name : {ZPD_LOG_DIRECTORY, ZPD_LOG_FILE}) {
        path_ /= name;
    }
}

bool log_files_t::read(const use_t& use) {
    if (!open_) {
        open_ = open_to_read(path_);
    }
    bool is_there = static_cast<bool>(open_);
    if (std::exchange(is_first_read_, false)) {
        // Opened after the other: that may have become the older one meanwhile, but none is missed.
        base::descriptor_t older = open_to_read(path_.native() + ".1");
        struct stat status {};
        struct stat other {};
        const bool is_other = older && fstat(older.get(), &status) == 0 &&
                              (!open_ || (fstat(open_.get(), &other) == 0 && !is_same_file(status, other)));
        if (is_other) {
            std::swap(open_, older);
            read_to_end(use);
            std::swap(open_, older);
            is_there = true;
        }
    }
    read_open(use);
    return is_there;
}

bool log_files_t::has_turned() const {
    struct stat read {};
    struct stat named {};
    return open_ && fstat(open_.get(), &read) == 0 && stat(path_.c_str(), &named) == 0 && !is_same_file(read, named);
}

void log_files_t::turn(const use_t& use) {
    read_to_end(use);
    open_ = open_to_read(path_);
}

void log_files_t::read_to_end(const use_t& use) {
    read_open(use);
    if (!unfinished_.empty()) {
        use(std::exchange(unfinished_, {}));
    }
}

void log_files_t::read_open(const use_t& use) {
    struct stat status {};
    if (open_ && fstat(open_.get(), &status) == 0 && status.st_size < lseek(open_.get(), 0, SEEK_CUR)) {
        lseek(open_.get(), 0, SEEK_SET);  // somebody has emptied it
    }
    std::array<char, 65536> buffer{};
    for (ssize_t count = 0; open_ && (count = ::read(open_.get(), buffer.data(), buffer.size())) > 0;) {
        unfinished_.append(buffer.data(), static_cast<size_t>(count));
        size_t begin = 0;
        for (size_t end = 0; (end = unfinished_.find('\n', begin)) != std::string::npos; begin = end + 1) {
            use(std::string_view(unfinished_).substr(begin, end - begin));
        }
        unfinished_.erase(0, begin);
    }
}
