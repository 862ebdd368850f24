#include "platform/linux/handles.h"

#include <atomic>

namespace platform {

HANDLE new_handle() {
    static std::atomic<uintptr_t> last{0x10000};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number in a pointer's clothes
    return reinterpret_cast<HANDLE>(last.fetch_add(4, std::memory_order_relaxed) + 4);
}

}  // namespace platform
