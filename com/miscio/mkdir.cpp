#include "com/miscio/mkdir.h"

#include <cstdio>

#include "com/qmlog/api2.h"

wide_string_t path_of(path_components_t components) {
    std::string path;
    for (; *components != nullptr; ++components) {
        path += "\\";
        path += *components;
    }
    return widen(path);
}

bool is_directory(const wide_string_t& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool make_directory(path_components_t components) {
    const wide_string_t path = path_of(components);
    if (is_directory(path)) {
        return true;
    }
    for (size_t end = 0; end != wide_string_t::npos;) {
        end = path.find(WCHAR{'\\'}, end + 1);
        const wide_string_t prefix = path.substr(0, end);
        if (!is_directory(prefix) && !CreateDirectoryW(prefix.c_str(), nullptr)) {
            return false;
        }
    }
    return true;
}

bool saveas(const wide_string_t& path, const std::string& octets) {
    FILE* file = _wfopen(path.c_str(), TEXT("wb"));
    if (file == nullptr) {
        QM_ERROR("can't open file '%s' for writing", narrow(path).c_str());
        return false;
    }
    const bool written = fwrite(octets.data(), octets.size(), 1, file) == 1;
    const bool closed = fclose(file) == 0;
    if (!written || !closed) {
        QM_ERROR("failed to write data to '%s'", narrow(path).c_str());
        DeleteFileW(path.c_str());  // a part of it is worse than none
        return false;
    }
    return true;
}
