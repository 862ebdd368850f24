/// As interposed/windows.h.
#pragma once

#include_next <aygshell.h>

#define SHLaunchApplicationForURI(...) ZPD_FALLIBLE("SHLaunchApplicationForURI", SHLaunchApplicationForURI, __VA_ARGS__)
