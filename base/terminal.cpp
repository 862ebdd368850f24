#include "base/terminal.h"

#include <fmt/chrono.h>
#include <unistd.h>

#include <ctime>

namespace base {

std::string time_on_terminal(int descriptor) {
    const time_t now = time(nullptr);
    tm local{};
    return isatty(descriptor) == 1 && localtime_r(&now, &local) != nullptr ? fmt::format("{:%H:%M:%S} ", local)
                                                                           : std::string();
}

}  // namespace base
