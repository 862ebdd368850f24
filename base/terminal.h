/// What a person at a terminal gets, and a program does not.
#pragma once

#include <string>

namespace base {

/// "12:05:09 " when the descriptor is a terminal: a journal knows the time, a person wants to. Else empty.
std::string time_on_terminal(int descriptor);

}  // namespace base
