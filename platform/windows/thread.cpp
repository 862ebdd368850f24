#include <windows.h>
#undef CreateThread

#include <memory>
#include <new>

namespace ce {
namespace {

struct task_t {
    LPTHREAD_START_ROUTINE start;
    LPVOID parameter;
    HMODULE module;
};

/// Nothing of this thread may need the module any more when its reference goes, so the task is freed before.
DWORD WINAPI run(LPVOID parameter) {
    task_t* const task = static_cast<task_t*>(parameter);
    const task_t copy = *task;
    delete task;
    const DWORD result = copy.start(copy.parameter);
    FreeLibraryAndExitThread(copy.module, result);
}

}  // namespace

HANDLE CreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stack_size, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                    DWORD flags, DWORD* thread_id) {
    auto task = std::unique_ptr<task_t>(new (std::nothrow) task_t{start, parameter, nullptr});
    if (task == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(start), &task->module)) {
        return nullptr;
    }
    HANDLE thread = ::CreateThread(security, stack_size, run, task.get(), flags, thread_id);
    if (thread == nullptr) {
        const DWORD error = GetLastError();
        FreeLibrary(task->module);
        SetLastError(error);
        return nullptr;
    }
    (void)task.release();  // the thread frees it
    return thread;
}

}  // namespace ce
