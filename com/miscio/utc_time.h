/// The wall clock as the driver counts it.
#pragma once

#include <cstdint>
#include <optional>

/// Seconds since 1970-01-01 UTC in 31 bits, from the system time; none when the platform cannot convert it.
std::optional<int32_t> utc_seconds();
