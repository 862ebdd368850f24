#include "platform/linux/stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/injection.h"

namespace platform {

namespace {

stream_file_t& file_of(void* cookie) {
    return *static_cast<stream_file_t*>(cookie);
}

ssize_t read_file(void* cookie, char* octets, size_t size) {
    ssize_t count = 0;
    do {
        count = read(file_of(cookie).descriptor(), octets, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

/// 0 means failure to the C library.
ssize_t write_file(void* cookie, const char* octets, size_t size) {
    return file_of(cookie).write(octets, size) ? static_cast<ssize_t>(size) : 0;
}

int seek_file(void* cookie, off64_t* position, int whence) {
    const off64_t reached = lseek64(file_of(cookie).descriptor(), *position, whence);
    if (reached < 0) {
        return -1;
    }
    *position = reached;
    return 0;
}

int close_file(void* cookie) {
    const std::unique_ptr<stream_file_t> file(&file_of(cookie));
    return file->close() ? 0 : EOF;
}

}  // namespace

base::descriptor_t open_regular_file(const std::filesystem::path& path, int flags) noexcept {
    // O_NONBLOCK keeps a FIFO from holding the caller; on regular files it means nothing.
    base::descriptor_t file(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0666));
    struct stat status {};
    if (file && (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file.close();
        errno = EACCES;
    }
    return file;
}

FILE* open_stream(std::unique_ptr<stream_file_t> file, const char* mode) {
    constexpr cookie_io_functions_t calls{read_file, write_file, seek_file, close_file};
    FILE* const stream = fopencookie(file.get(), mode, calls);
    if (stream != nullptr) {
        static_cast<void>(file.release());
    }
    return stream;
}

bool write_all(int descriptor, const char* octets, size_t size) noexcept {
    while (size != 0) {
        const ssize_t count = fails("write") ? -1 : write(descriptor, octets, size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        octets += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace platform
