#include "platform/linux/file_writes.h"

#include <utility>

#include "base/text.h"

namespace platform {

namespace {

struct noted_t {
    size_t written = 0;
    std::string where;
    int error = 0;  // of the first failure; 0 for none
    appears_t appears;
};

thread_local noted_t noted;

}  // namespace

void begin_file_writes(appears_t appears) {
    noted = {.written = 0, .where = {}, .error = 0, .appears = std::move(appears)};
}

file_writes_t file_writes() {
    if (noted.error == 0) {
        return {noted.written, {}};
    }
    return {noted.written, "'" + noted.where + "': " + base::errno_text(noted.error)};
}

void note_appearing(const std::string& path) noexcept {
    if (noted.appears) {
        noted.appears(path);
    }
}

void note_written() noexcept {
    ++noted.written;
}

void note_failure(std::string where, int error) noexcept {
    if (noted.error == 0) {
        noted.where = std::move(where);
        noted.error = error;
    }
}

}  // namespace platform
