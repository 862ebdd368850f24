/// The registry of the present home as a whole, for those that must know whether it can be relied upon.
#pragma once

#include <string>

namespace platform {

/// Opens it, making it when it is missing. Returns an empty text, or which file cannot be used and why. Thread-safe.
[[nodiscard]] std::string open_registry();

/// At the end of a process: a copy of its one file then holds all of it.
void checkpoint_registry();

}  // namespace platform
