#include "base/own_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "base/text.h"

namespace base {

namespace {

/// As a shell takes it, whatever is in it.
std::string for_shell(const std::filesystem::path& path) {
    std::string text = "'";
    for (const char letter : path.native()) {
        text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return text + "'";
}

std::string owner_problem(const std::string& what, const std::filesystem::path& path, const struct stat& status) {
    if (status.st_uid != geteuid()) {
        return what + " belongs to another user (" + std::to_string(status.st_uid) + "): chown " +
               std::to_string(geteuid()) + " " + for_shell(path);
    }
    return {};
}

std::string mode_problem(const std::string& what, const std::filesystem::path& path, const struct stat& status) {
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return what + " can be written by others: chmod go-w " + for_shell(path);
    }
    return {};
}

std::string owner_or_mode_problem(const std::string& what, const std::filesystem::path& path,
                                  const struct stat& status) {
    std::string problem = owner_problem(what, path, status);
    return problem.empty() ? mode_problem(what, path, status) : problem;
}

std::string file_problem(const std::filesystem::path& file, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return for_shell(file) + " is " + kind_of_file(status.st_mode) + " where a file of your own belongs: mv " +
               for_shell(file) + " " + for_shell(file.native() + ".old");
    }
    return owner_or_mode_problem("the file " + for_shell(file), file, status);
}

std::string unusable(const std::string& what, int error) {
    return "cannot use " + what + ": " + errno_text(error);
}

}  // namespace

const char* kind_of_file(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "a file";
        case S_IFDIR:
            return "a folder";
        case S_IFLNK:
            return "a link";
        case S_IFIFO:
            return "a FIFO";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

std::string own_folder_problem(const std::string& what, const std::filesystem::path& folder) {
    const std::string named = what + " " + for_shell(folder);
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) {
        return unusable(named, errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        return named + " is " + kind_of_file(status.st_mode);
    }
    if (std::string problem = owner_or_mode_problem(named, folder, status); !problem.empty()) {
        return problem;
    }
    const std::filesystem::path above = folder.parent_path();
    if (stat(above.c_str(), &status) != 0) {
        return unusable(named, errno);
    }
    const bool trusted = (status.st_uid == geteuid() || status.st_uid == 0) && (status.st_mode & S_IWOTH) == 0;
    if (!trusted && (status.st_mode & S_ISVTX) == 0) {
        return named + " lies in a folder in which others can put another in its place: chmod o-w " + for_shell(above) +
               (status.st_uid == geteuid() ? "" : ", or choose a folder of your own");
    }
    return {};
}

std::string own_file_problem(const std::filesystem::path& file) {
    struct stat status {};
    if (lstat(file.c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? std::string() : unusable(for_shell(file), errno);
    }
    return file_problem(file, status);
}

descriptor_t open_own_file(const std::filesystem::path& file, int flags, std::string& problem) {
    descriptor_t opened(open(file.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600));
    struct stat status {};
    if (!opened || fstat(opened.get(), &status) != 0) {
        const int reason = errno;
        problem = own_file_problem(file);
        if (problem.empty()) {
            problem = "cannot open " + for_shell(file) + ": " + errno_text(reason);
        }
        errno = reason;
        return {};
    }
    problem = file_problem(file, status);
    if (!problem.empty()) {
        errno = EACCES;
        return {};
    }
    return opened;
}

descriptor_t open_trusted_file(const std::filesystem::path& file, std::string& problem) {
    descriptor_t opened(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!opened || fstat(opened.get(), &status) != 0) {
        const int reason = errno;
        problem = "cannot open " + for_shell(file) + ": " + errno_text(reason);
        errno = reason;
        return {};
    }
    if (S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3)) {  // /dev/null
        return opened;
    }
    const std::string named = "the file " + for_shell(file);
    if (!S_ISREG(status.st_mode)) {
        problem = for_shell(file) + " is " + kind_of_file(status.st_mode) + " where a file belongs";
    } else if (status.st_uid != 0) {
        problem = owner_problem(named, file, status);
    }
    if (problem.empty()) {
        problem = mode_problem(named, file, status);
    }
    if (!problem.empty()) {
        errno = EACCES;
        return {};
    }
    return opened;
}

}  // namespace base
