#include "base/file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace base {

namespace {

struct file_closer_t {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

int read_file(const std::filesystem::path& file, size_t limit, std::string* octets) {
    octets->clear();
    const std::unique_ptr<std::FILE, file_closer_t> stream(std::fopen(file.c_str(), "rbe"));
    if (!stream) {
        return errno;
    }
    std::array<char, 4096> buffer{};
    while (octets->size() <= limit) {
        const size_t count = std::fread(buffer.data(), 1, buffer.size(), stream.get());
        if (count == 0) {
            break;
        }
        octets->append(buffer.data(), count);
    }
    return std::ferror(stream.get()) != 0 ? errno : 0;
}

}  // namespace base
