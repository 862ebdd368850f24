/// C streams over a file of the host that is more than a descriptor: what a write and the close do is its own affair.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "base/descriptor.h"

namespace platform {

/// The file behind a stream, on the thread that uses the stream. Nothing here throws: the C library is the caller.
class stream_file_t {
  public:
    stream_file_t() = default;
    virtual ~stream_file_t() = default;
    stream_file_t(const stream_file_t&) = delete;
    stream_file_t& operator=(const stream_file_t&) = delete;

    int descriptor() const { return file_.get(); }
    /// Writes all of it; false with errno when that fails. What was written of it stays.
    virtual bool write(const char* octets, size_t size) noexcept = 0;
    /// The last call, from fclose. False with errno when something is not as a reader of the file expects it.
    virtual bool close() noexcept = 0;

  protected:
    base::descriptor_t file_;
};

/// Opens what open(2) does if it is a regular file, and no symbolic link; none with errno. It is closed when another
/// program is started, and nothing on the way holds the caller.
base::descriptor_t open_regular_file(const std::filesystem::path& path, int flags) noexcept;

/// A stream in one of fopen's modes, which owns the file; null with errno when there is none to be had.
FILE* open_stream(std::unique_ptr<stream_file_t> file, const char* mode);

/// write(2) until all is written; false with errno.
bool write_all(int descriptor, const char* octets, size_t size) noexcept;

}  // namespace platform
