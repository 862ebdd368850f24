#include "device/device_socket.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace device {

bool is_path(std::string_view device) {
    return device.find_first_of("/.") != std::string_view::npos;
}

std::filesystem::path user_folder() {
    const char* folder = std::getenv("XDG_RUNTIME_DIR");  // NOLINT(concurrency-mt-unsafe)
    // The XDG base directories are absolute paths; any other is to be ignored.
    if (folder != nullptr && folder[0] == '/') {
        return std::filesystem::path(folder) / "zpd";
    }
    return "/tmp/zpd-" + std::to_string(getuid());
}

}  // namespace device
