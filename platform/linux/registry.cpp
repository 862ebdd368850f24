#include "platform/linux/registry.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/linux/handles.h"
#include "platform/linux/home.h"
#include "platform/linux/injection.h"
#include "platform/linux/paths.h"
#include "platform/linux/registry_database.h"

namespace {

using platform::injected_failure;
using platform::registry_database_t;

constexpr DWORD set_value_access = 0x2;        // KEY_SET_VALUE
constexpr size_t longest_key_component = 255;  // units, as on the platform
constexpr DWORD injected_growth = 16;          // see RegQueryValueExW

struct open_key_t {
    std::shared_ptr<registry_database_t> database;
    std::string path;
    DWORD access;
};

platform::handle_table_t<open_key_t>& keys() {
    static auto& table = *new platform::handle_table_t<open_key_t>;  // threads that outlive main may still use it
    return table;
}

/// The database of the present home. Open keys share it, so they stay with the home in which they were opened. On an
/// error, `reason` tells what is wrong with the file.
LONG current_database(std::shared_ptr<registry_database_t>& database, std::string& reason) {
    struct state_t {
        std::mutex mutex;
        const std::filesystem::path* home = nullptr;
        std::shared_ptr<registry_database_t> database;
    };
    static auto& state = *new state_t;
    const std::lock_guard lock(state.mutex);
    const std::filesystem::path& home = platform::home();
    if (home.empty()) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (state.home != &home || state.database == nullptr) {
        state.database.reset();
        state.home = &home;
        const LONG error = registry_database_t::open(home / "registry.sqlite", state.database, reason);
        if (error != ERROR_SUCCESS) {
            return error;
        }
    }
    database = state.database;
    return ERROR_SUCCESS;
}

/// The key behind a handle, or a predefined root.
LONG key_of(HKEY handle, std::shared_ptr<open_key_t>& key) {
    if (handle != HKEY_LOCAL_MACHINE) {
        key = keys().find(handle);
        return key != nullptr ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    }
    key = std::make_shared<open_key_t>(open_key_t{nullptr, "HKEY_LOCAL_MACHINE", KEY_READ | KEY_WRITE});
    std::string reason;
    return current_database(key->database, reason);
}

/// Where `path` under `root` lies; the handle is not open yet.
LONG locate(HKEY root, LPCWSTR path, DWORD access, std::shared_ptr<open_key_t>& parent, open_key_t& key) {
    if (const LONG error = key_of(root, parent); error != ERROR_SUCCESS) {
        return error;
    }
    key = {parent->database, parent->path, access};
    for (const std::u16string_view component : platform::path_components(path == nullptr ? u"" : path)) {
        if (component.size() > longest_key_component) {
            return ERROR_INVALID_PARAMETER;
        }
        key.path += '\\' + base::to_utf8(component);
    }
    return ERROR_SUCCESS;
}

HKEY open_handle(open_key_t key) {
    return static_cast<HKEY>(keys().add(std::make_shared<open_key_t>(std::move(key))));
}

LONG key_for(HKEY handle, DWORD access, std::shared_ptr<open_key_t>& key) {
    const LONG error = key_of(handle, key);
    if (error == ERROR_SUCCESS && (key->access & access) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    return error;
}

std::string name_text(LPCWSTR name) {
    return name == nullptr ? std::string() : base::to_utf8(name);
}

}  // namespace

std::string platform::open_registry() {
    std::shared_ptr<registry_database_t> database;
    std::string reason = "there is no home folder";
    return current_database(database, reason) == ERROR_SUCCESS ? std::string() : reason;
}

void platform::checkpoint_registry() {
    std::shared_ptr<registry_database_t> database;
    std::string ignored;
    if (current_database(database, ignored) == ERROR_SUCCESS) {
        database->checkpoint();
    }
}

LONG RegCreateKeyExW(HKEY root, LPCWSTR path, DWORD /*reserved*/, LPWSTR /*key_class*/, DWORD /*options*/, DWORD access,
                     void* /*security*/, HKEY* key, DWORD* disposition) {
    if (const auto error = injected_failure(__func__)) {
        return *error;
    }
    if (key == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    std::shared_ptr<open_key_t> parent;
    open_key_t wanted;
    if (const LONG error = locate(root, path, access, parent, wanted); error != ERROR_SUCCESS) {
        return error;
    }
    bool created = false;
    if (wanted.path.size() != parent->path.size()) {
        const LONG error = wanted.database->create_key(wanted.path, parent->path.size(), created);
        if (error != ERROR_SUCCESS) {
            return error;
        }
    }
    *key = open_handle(std::move(wanted));
    if (disposition != nullptr) {
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    }
    return ERROR_SUCCESS;
}

LONG RegOpenKeyExW(HKEY root, LPCWSTR path, DWORD /*options*/, DWORD access, HKEY* key) {
    if (const auto error = injected_failure(__func__)) {
        return *error;
    }
    if (key == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    std::shared_ptr<open_key_t> parent;
    open_key_t wanted;
    if (const LONG error = locate(root, path, access, parent, wanted); error != ERROR_SUCCESS) {
        return error;
    }
    if (wanted.path.size() != parent->path.size()) {
        if (const LONG error = wanted.database->find_key(wanted.path); error != ERROR_SUCCESS) {
            return error;
        }
    }
    *key = open_handle(std::move(wanted));
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY key) {
    if (const auto error = injected_failure(__func__)) {
        return *error;
    }
    const bool closed = key == HKEY_LOCAL_MACHINE || keys().remove(key) != nullptr;
    return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LONG RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) {
    if (const auto error = injected_failure(__func__)) {
        // As though the value had just grown, for callers that then allocate again.
        if (*error == ERROR_MORE_DATA && data != nullptr && size != nullptr) {
            *size += injected_growth;
        }
        return *error;
    }
    if (reserved != nullptr || (data != nullptr && size == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    std::shared_ptr<open_key_t> opened;
    if (const LONG error = key_for(key, KEY_QUERY_VALUE, opened); error != ERROR_SUCCESS) {
        return error;
    }
    platform::registry_value_t value;
    if (const LONG error = opened->database->read(opened->path, name_text(name), value); error != ERROR_SUCCESS) {
        return error;
    }
    const DWORD room = data != nullptr ? *size : 0;
    if (type != nullptr) {
        *type = value.type;
    }
    if (size != nullptr) {
        *size = static_cast<DWORD>(value.data.size());
    }
    if (data == nullptr) {
        return ERROR_SUCCESS;
    }
    if (value.data.size() > room) {
        return ERROR_MORE_DATA;
    }
    std::copy(value.data.begin(), value.data.end(), data);
    return ERROR_SUCCESS;
}

LONG RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
    if (const auto error = injected_failure(__func__)) {
        return *error;
    }
    if (reserved != 0 || (data == nullptr && size != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    std::shared_ptr<open_key_t> opened;
    if (const LONG error = key_for(key, set_value_access, opened); error != ERROR_SUCCESS) {
        return error;
    }
    return opened->database->write(opened->path, name_text(name), type, {data, size});
}

LONG RegFlushKey(HKEY key) {
    if (const auto error = injected_failure(__func__)) {
        return *error;
    }
    std::shared_ptr<open_key_t> opened;
    if (const LONG error = key_of(key, opened); error != ERROR_SUCCESS) {
        return error;
    }
    return opened->database->flush();
}
