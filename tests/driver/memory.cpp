#include "tests/driver/memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local long left = -1;  // allocations before the one that is refused; below 0: none is, or it has been
thread_local bool refused = false;
std::atomic<long> refusals = 0;

}  // namespace

void refuse_memory_after(long count) {
    left = count;
    refused = false;
}

bool was_memory_refused() {
    left = -1;
    return refused;
}

long refusals_of_memory() {
    return refusals;
}

void* operator new(std::size_t size) {
    if (left >= 0 && left-- == 0) {
        refused = true;
        ++refusals;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
