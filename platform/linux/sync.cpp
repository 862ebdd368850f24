#include "platform/linux/sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/injection.h"

namespace platform {

bool sync_file(int descriptor) noexcept {
    return !fails("fsync") && fsync(descriptor) == 0;
}

base::descriptor_t take_folder(place_t& place) {
    if (fails("open")) {
        return {};
    }
    if (place.folder) {
        return std::move(place.folder);
    }
    place.name_at = place.path.rfind('/') + 1;
    return base::descriptor_t(open(place.path.substr(0, place.name_at).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool sync_folder(const base::descriptor_t& folder) noexcept {
    return sync_file(folder.get()) || errno == EINVAL;  // fsync(2): no synchronization there
}

}  // namespace platform
