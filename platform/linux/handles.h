/// Opaque handle values for shared objects. A value is used once in the life of the process, so a stale handle, one of
/// another kind and a foreign value are simply not found. Safe from any thread.
#pragma once

#include <windows.h>

#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace platform {

/// A value that was never a handle before: a multiple of 4, hence neither INVALID_HANDLE_VALUE nor a predefined
/// registry root, and never null.
HANDLE new_handle();

template <typename object_t>
class handle_table_t {
  public:
    HANDLE add(std::shared_ptr<object_t> object) {
        HANDLE handle = new_handle();
        const std::lock_guard lock(mutex);
        objects.emplace(handle, std::move(object));
        return handle;
    }

    /// Null when the handle is none of this table's.
    std::shared_ptr<object_t> find(HANDLE handle) {
        const std::lock_guard lock(mutex);
        const auto at = objects.find(handle);
        return at == objects.end() ? nullptr : at->second;
    }

    /// Takes the object out of the table; whoever uses it just now keeps it alive.
    std::shared_ptr<object_t> remove(HANDLE handle) {
        const std::lock_guard lock(mutex);
        auto node = objects.extract(handle);
        return node.empty() ? nullptr : std::move(node.mapped());
    }

  private:
    std::mutex mutex;
    std::unordered_map<HANDLE, std::shared_ptr<object_t>> objects;
};

}  // namespace platform
