#include <fcntl.h>
#include <io.h>
#include <windows.h>
#undef _wfopen

#include <cerrno>
#include <string_view>

namespace ce {

FILE* _wfopen(LPCWSTR path, LPCWSTR mode) {
    if (std::wstring_view(mode) != L"ab") {
        return ::_wfopen(path, mode);
    }
    HANDLE file = CreateFileW(path, FILE_APPEND_DATA | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        errno = GetLastError() == ERROR_ACCESS_DENIED ? EACCES : ENOENT;
        return nullptr;
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(file), _O_APPEND | _O_BINARY);
    if (descriptor == -1) {
        CloseHandle(file);
        return nullptr;
    }
    FILE* const stream = _wfdopen(descriptor, mode);
    if (stream == nullptr) {
        _close(descriptor);  // and the file with it
    }
    return stream;
}

}  // namespace ce
