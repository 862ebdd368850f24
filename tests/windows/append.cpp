#include "tests/windows/append.h"

#include <mutex>
#undef fwrite

size_t fwrite_in_turn(const void* octets, size_t size, size_t count, FILE* stream) {
    static auto& turn = *new std::mutex;  // threads that outlive main may still log
    const std::lock_guard lock(turn);
    return fwrite(octets, size, count, stream);
}
