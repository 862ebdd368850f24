/// For tests only: makes platform calls fail and moves the clock.
#pragma once

#include <windows.h>

#include <string_view>

namespace platform::testing {

/// The calls number `skip`+1 .. `skip`+`count` to the function of this name ("CreateEventW") fail from now on with
/// `error`; a negative count means every one. Replaces what was set for the function. A function that reports failure
/// in the C runtime's way (_wfopen) sets errno to EACCES. The host's own calls by which a file is written whole have
/// their names too, and fail with an errno: "O_TMPFILE" (open with it), "open", "write", "fsync", "linkat",
/// "AT_EMPTY_PATH" (linkat with it), "rename".
void fail_calls(std::string_view function, DWORD error, int count = 1, int skip = 0);
/// Forgets all of that.
void no_failures();

/// Moves tick64 forward; timed waits whose time has come then end.
void advance_clock(uint64_t milliseconds);
/// Moves tick64 forward until GetTickCount's 32 bits show `tick` (past the wrap, if need be).
void advance_clock_to(DWORD tick);

}  // namespace platform::testing
