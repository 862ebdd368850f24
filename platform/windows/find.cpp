#include <windows.h>
#undef FindFirstFileW
#undef FindNextFileW

namespace ce {
namespace {

bool is_dots(const WIN32_FIND_DATAW& entry) {
    const WCHAR* const name = entry.cFileName;
    return name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0));
}

}  // namespace

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* entry) {
    BOOL found = FALSE;
    do {
        found = ::FindNextFileW(find, entry);
    } while (found && is_dots(*entry));
    return found;
}

HANDLE FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* entry) {
    HANDLE find = ::FindFirstFileW(pattern, entry);
    if (find == INVALID_HANDLE_VALUE || !is_dots(*entry) || ce::FindNextFileW(find, entry)) {
        return find;
    }
    const DWORD error = GetLastError();
    FindClose(find);
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

}  // namespace ce
