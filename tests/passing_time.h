/// Time for tests in which both sides of a dialogue are threads of this process. The clock moves only when all other
/// threads sleep and nothing is on its way between them, and then straight to where the first of them would wake:
/// however busy the machine is, time never overtakes who has something to do, and nobody waits for it.
#pragma once

#include <cstdint>
#include <functional>

/// Until all others sleep, whatever was on its way has come, and only time could wake them. False when that does not
/// happen within a minute.
[[nodiscard]] bool come_to_rest();

/// So many milliseconds of base::tick64, at the end of which all have come to rest.
void let_time_pass(uint64_t milliseconds);

/// Until the predicate holds, which is asked at rest; false when it does not within an hour of base::tick64.
[[nodiscard]] bool as_time_passes(const std::function<bool()>& predicate);
