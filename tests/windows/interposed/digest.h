/// As interposed/windows.h.
#pragma once

#include_next <digest.h>
#include <windows.h>

#define md5_digest(...) ZPD_FALLIBLE("md5_digest", md5_digest, __VA_ARGS__)
