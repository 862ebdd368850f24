#include "platform/linux/sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/injection.h"

namespace platform {

bool sync_file(int descriptor) noexcept {
    return !fails("fsync") && fsync(descriptor) == 0;
}

base::descriptor_t open_folder(const std::filesystem::path& folder) noexcept {
    return base::descriptor_t(fails("open") ? -1 : open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool sync_folder(const base::descriptor_t& folder) noexcept {
    return sync_file(folder.get()) || errno == EINVAL;  // fsync(2): no synchronization there
}

}  // namespace platform
