/// Threads that nobody joins.
#pragma once

#include <cstddef>
#include <functional>

namespace platform {

/// Runs `body` on a new detached thread. `stack_size` (octets) is a lower bound; the host's default is used when it is
/// larger, for it is reserved, not committed. False when the host has no room for a thread.
[[nodiscard]] bool start_detached(size_t stack_size, std::function<void()> body);

}  // namespace platform
