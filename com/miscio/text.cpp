#include "com/miscio/text.h"

#include <algorithm>

std::string narrow(wide_view_t text) {
    const bool is_ascii = std::all_of(text.begin(), text.end(), [](WCHAR unit) { return unit < 0x80; });
    if (is_ascii) {
        return {text.begin(), text.end()};
    }
    const int length = static_cast<int>(text.size());
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), needed, nullptr, nullptr);
    return result;
}

wide_string_t widen(std::string_view text) {
    const int length = static_cast<int>(text.size());
    if (length == 0) {
        return {};
    }
    wide_string_t result(text.size(), WCHAR{});  // no octet gives more than a unit
    const int needed = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), length);
    result.resize(static_cast<size_t>(needed));
    return result;
}
