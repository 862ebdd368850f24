#include <windows.h>
#undef RegCreateKeyExW
#undef RegOpenKeyExW

namespace ce {
namespace {

LPCWSTR without_root(LPCWSTR path) {
    return path != nullptr && *path == L'\\' ? path + 1 : path;
}

}  // namespace

LONG RegCreateKeyExW(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR key_class, DWORD options, REGSAM access,
                     SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* disposition) {
    return ::RegCreateKeyExW(root, without_root(path), reserved, key_class, options, access, security, key,
                             disposition);
}

LONG RegOpenKeyExW(HKEY root, LPCWSTR path, DWORD options, REGSAM access, HKEY* key) {
    return ::RegOpenKeyExW(root, without_root(path), options, access, key);
}

}  // namespace ce
