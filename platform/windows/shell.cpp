#include <aygshell.h>
#include <shellapi.h>

#include <cwctype>

namespace {

/// Whether a text begins with a scheme (RFC 3986 3.1) of two characters or more: a single letter is a drive, and
/// without a scheme it would be a program to run.
bool has_scheme(LPCWSTR uri) {
    const auto is_letter = [](WCHAR c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); };
    if (!is_letter(*uri)) {
        return false;
    }
    LPCWSTR at = uri;
    while (is_letter(*at) || (*at >= L'0' && *at <= L'9') || *at == L'+' || *at == L'-' || *at == L'.') {
        ++at;
    }
    return *at == L':' && at - uri >= 2;
}

}  // namespace

DWORD SHLaunchApplicationForURI(BSTR uri, HANDLE* output) {
    if (uri == nullptr || !has_scheme(uri)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (output != nullptr) {
        *output = nullptr;
    }
    const auto result =
        reinterpret_cast<INT_PTR>(ShellExecuteW(nullptr, nullptr, uri, nullptr, nullptr, SW_SHOWNORMAL));
    if (result > 32) {  // as it is documented; what is less is an error code
        return ERROR_SUCCESS;
    }
    return result == SE_ERR_NOASSOC ? ERROR_NO_ASSOCIATION : result == 0 ? ERROR_NOT_ENOUGH_MEMORY : result;
}
