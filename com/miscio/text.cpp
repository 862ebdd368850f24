#include "com/miscio/text.h"

std::string narrow(wide_view_t text) {
    const int length = static_cast<int>(text.size());
    if (length == 0) {
        return {};
    }
    std::string result(text.size() * 3, '\0');  // a unit takes three octets at most, a pair of them four
    const int room = static_cast<int>(result.size());
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), room, nullptr, nullptr);
    result.resize(static_cast<size_t>(needed));
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
