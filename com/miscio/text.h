/// Wide and narrow text, and the identities of objects in log lines.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

using wide_string_t = std::basic_string<WCHAR>;
using wide_view_t = std::basic_string_view<WCHAR>;

/// UTF-16 to UTF-8: a surrogate pair becomes one code point, a lone surrogate U+FFFD.
std::string narrow(wide_view_t text);
/// UTF-8 to UTF-16; ill-formed sequences become U+FFFD.
wide_string_t widen(std::string_view text);

/// How a line words it: some say it in capitals, deliberately.
inline const char* yes_or_no(bool value, const char* yes = "yes", const char* no = "no") {
    return value ? yes : no;
}

/// What "0x%X" prints for an object: its address, on a 64-bit machine the low 32 bits of it.
inline uint32_t identity(const void* object) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object));
}
