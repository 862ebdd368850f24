/// What the system has to have for many phones: descriptors for this process, and pseudo-terminals. Any thread.
#pragma once

#include <cstddef>
#include <string>

namespace network {

/// Raises this process's limit of open files when so many phones may need more, as far as it may be raised.
void raise_descriptor_limit(size_t phones);

/// What an errno of who asked for one more of them means, with the number that stands against it.
std::string limit_text(int error);

}  // namespace network
