// The platform's view of base/clock.h: its low 32 bits.
#include <windows.h>

#include "base/clock.h"
#include "platform/linux/testing.h"

DWORD GetTickCount() {
    return static_cast<DWORD>(base::tick64());
}

namespace platform::testing {

void advance_clock(uint64_t milliseconds) {
    base::advance_clock(milliseconds);
}

void advance_clock_to(DWORD tick) {
    advance_clock(static_cast<DWORD>(tick - GetTickCount()));
}

}  // namespace platform::testing
