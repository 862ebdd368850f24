#include "platform/linux/thread.h"

#include <pthread.h>
#include <unistd.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include "platform/linux/event.h"
#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"

namespace platform {
namespace {

void* run(void* argument) {
    const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
    (*body)();
    return nullptr;
}

}  // namespace

bool start_detached(size_t stack_size, std::function<void()> body) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    size_t default_size = 0;
    pthread_attr_getstacksize(&attributes, &default_size);
    pthread_attr_setstacksize(&attributes, std::max(default_size, stack_size));
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto argument = std::make_unique<std::function<void()>>(std::move(body));
    pthread_t thread{};
    const bool started = pthread_create(&thread, &attributes, run, argument.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (started) {
        static_cast<void>(argument.release());  // the thread frees it
    }
    return started;
}

}  // namespace platform

using platform::failed;
using platform::waitable_t;

HANDLE CreateThread(void* /*security*/, DWORD stack_size, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                    DWORD /*flags*/, DWORD* thread_id) {
    if (const auto error = platform::injected_failure(__func__)) {
        return failed(*error, HANDLE{});
    }
    if (start == nullptr) {
        return failed(ERROR_INVALID_PARAMETER, HANDLE{});
    }
    const auto ended = std::make_shared<waitable_t>(waitable_t::kind_t::thread, false);
    const auto id = std::make_shared<std::atomic<DWORD>>(0);
    HANDLE handle = platform::waitables().add(ended);  // first: nothing may fail once the thread runs
    const bool started = platform::start_detached(stack_size, [start, parameter, ended, id] {
        id->store(GetCurrentThreadId());
        id->notify_one();
        start(parameter);
        ended->set();
    });
    if (!started) {
        platform::waitables().remove(handle);
        return failed(ERROR_NOT_ENOUGH_MEMORY, HANDLE{});
    }
    if (thread_id != nullptr) {
        id->wait(0);
        *thread_id = id->load();
    }
    return handle;
}

// The kernel's thread id, so that log lines agree with what top, gdb and strace show.
DWORD GetCurrentThreadId() {
    thread_local const auto id = static_cast<DWORD>(gettid());
    return id;
}
