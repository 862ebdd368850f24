/// The windows.h of a Windows CE SDK, and what the driver takes from beside it.
#pragma once

// clang-format off
#include_next <windows.h>
#include <oleauto.h>  // the shell's texts: SysAllocString
// clang-format on

#include <cstdio>
#include <cwchar>

// Words that a program may want for its own.
#undef near
#undef far
#undef interface
#undef small
