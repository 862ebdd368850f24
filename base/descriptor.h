/// Owns a file descriptor, and closes it; errno stays as it was.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace base {

class descriptor_t {
  public:
    descriptor_t() = default;
    explicit descriptor_t(int descriptor) : descriptor_(descriptor) {}
    ~descriptor_t() { close(); }
    descriptor_t(descriptor_t&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    descriptor_t& operator=(descriptor_t&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    descriptor_t(const descriptor_t&) = delete;
    descriptor_t& operator=(const descriptor_t&) = delete;

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    /// Gives the ownership up.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }
    void close() {
        if (descriptor_ >= 0) {
            const int reason = errno;
            ::close(std::exchange(descriptor_, -1));
            errno = reason;
        }
    }

  private:
    int descriptor_ = -1;
};

}  // namespace base
