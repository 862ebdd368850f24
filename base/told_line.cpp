#include "base/told_line.h"

#include <fmt/chrono.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "base/safe_text.h"

namespace base {

namespace {

// The variable alone says little: a program that writes elsewhere inherits it.
bool is_journal(int descriptor) {
    const char* const journal = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    struct stat status {};
    return journal != nullptr && fstat(descriptor, &status) == 0 &&
           fmt::format("{}:{}", status.st_dev, status.st_ino) == journal;
}

std::string beginning(int descriptor, priority_t priority) {
    if (isatty(descriptor) == 1) {
        const time_t now = time(nullptr);
        tm local{};
        return localtime_r(&now, &local) != nullptr ? fmt::format("{:%H:%M:%S} ", local) : std::string();
    }
    return is_journal(descriptor) ? fmt::format("<{}>", static_cast<int>(priority)) : std::string();
}

}  // namespace

void tell_line(std::FILE* stream, priority_t priority, std::string_view text) {
    const std::string line = beginning(fileno(stream), priority) + escaped(text) + '\n';
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stream));
    std::fflush(stream);
}

}  // namespace base
