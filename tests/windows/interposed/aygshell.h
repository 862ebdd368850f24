/// As interposed/windows.h. Its own error is what the call returns.
#pragma once

#include_next <aygshell.h>

#define SHLaunchApplicationForURI(...) \
    ZPD_FALLIBLE(fallible_registry, "SHLaunchApplicationForURI", SHLaunchApplicationForURI, __VA_ARGS__)
