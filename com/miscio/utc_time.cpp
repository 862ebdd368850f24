#include "com/miscio/utc_time.h"

#include <windows.h>

std::optional<int32_t> utc_seconds() {
    constexpr uint64_t file_time_units = 10'000'000;          // a second, in 100 ns
    constexpr uint64_t seconds_before_1970 = 11'644'473'600;  // since 1601
    SYSTEMTIME now;
    FILETIME file_time;
    GetSystemTime(&now);
    if (!SystemTimeToFileTime(&now, &file_time)) {
        return std::nullopt;
    }
    const uint64_t units = static_cast<uint64_t>(file_time.dwHighDateTime) << 32 | file_time.dwLowDateTime;
    return static_cast<int32_t>((units / file_time_units - seconds_before_1970) & 0x7FFFFFFF);
}
