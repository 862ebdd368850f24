/// Times of the host as times of the platform.
#pragma once

#include <windows.h>

#include <ctime>

namespace platform {

/// FILETIME of a time since 1970-01-01 UTC; times before 1601 give 0.
FILETIME to_file_time(const timespec& time);

}  // namespace platform
