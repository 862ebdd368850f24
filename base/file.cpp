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

int read_all(std::FILE* stream, size_t limit, std::string* octets) {
    std::array<char, 4096> buffer{};
    while (octets->size() <= limit) {
        const size_t count = std::fread(buffer.data(), 1, buffer.size(), stream);
        if (count == 0) {
            break;
        }
        octets->append(buffer.data(), count);
    }
    return std::ferror(stream) != 0 ? errno : 0;
}

}  // namespace

int read_file(const std::filesystem::path& file, size_t limit, std::string* octets) {
    octets->clear();
    const std::unique_ptr<std::FILE, file_closer_t> stream(std::fopen(file.c_str(), "rbe"));
    return stream ? read_all(stream.get(), limit, octets) : errno;
}

int read_standard_input(size_t limit, std::string* octets) {
    octets->clear();
    return read_all(stdin, limit, octets);
}

}  // namespace base
