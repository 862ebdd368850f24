/// Points in time as people write and read them, in local time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// "2026-11-22 11:05:12"
std::string local_time(uint64_t since_1970);

/// "2h" (so long ago, as in base/duration.h), "2026-11-22", "2026-11-22 11:05", "2026-11-22 11:05:12", or seconds since
/// 1970: these seconds; none for anything else.
std::optional<uint64_t> read_time(const std::string& text);
