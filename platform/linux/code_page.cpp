#include <windows.h>

#include <algorithm>
#include <climits>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"

namespace {

using platform::failed;

/// The call's input; -1 stands for the text with its terminator.
template <typename unit_t>
std::basic_string_view<unit_t> input(const unit_t* text, int length) {
    return {text, length == -1 ? std::char_traits<unit_t>::length(text) + 1 : static_cast<size_t>(length)};
}

template <typename unit_t>
int deliver(const std::basic_string<unit_t>& result, unit_t* output, int room) {
    if (result.size() > INT_MAX || (room != 0 && result.size() > static_cast<size_t>(room))) {
        return failed(ERROR_INSUFFICIENT_BUFFER, 0);
    }
    if (room != 0) {
        std::copy(result.begin(), result.end(), output);
    }
    return static_cast<int>(result.size());
}

bool valid(DWORD code_page, DWORD flags, const void* text, int length, const void* output, int room) {
    return code_page == CP_UTF8 && flags == 0 && text != nullptr && (length == -1 || length > 0) && room >= 0 &&
           (room == 0 || output != nullptr);
}

}  // namespace

int WideCharToMultiByte(DWORD code_page, DWORD flags, LPCWSTR wide, int wide_length, char* narrow, int narrow_length,
                        const char* default_char, BOOL* used_default_char) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, 0);
    }
    if (!valid(code_page, flags, wide, wide_length, narrow, narrow_length) || default_char != nullptr ||
        used_default_char != nullptr) {
        return failed(ERROR_INVALID_PARAMETER, 0);
    }
    return deliver(base::to_utf8(input(wide, wide_length)), narrow, narrow_length);
}

int MultiByteToWideChar(DWORD code_page, DWORD flags, const char* narrow, int narrow_length, LPWSTR wide,
                        int wide_length) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, 0);
    }
    if (!valid(code_page, flags, narrow, narrow_length, wide, wide_length)) {
        return failed(ERROR_INVALID_PARAMETER, 0);
    }
    return deliver(base::to_utf16(input(narrow, narrow_length)), wide, wide_length);
}
