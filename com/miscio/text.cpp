#include "com/miscio/text.h"

std::string narrow(wide_view_t text) {
    const int length = static_cast<int>(text.size());
    if (length == 0) {
        return {};
    }
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
    const int needed = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    wide_string_t result(static_cast<size_t>(needed), WCHAR{});
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), needed);
    return result;
}
