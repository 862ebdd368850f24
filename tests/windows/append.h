/// What Windows does in one step when a file is written that was opened for appending, Wine does in two: it looks where
/// the file ends and writes there. The log's writes take turns, so that lines of two threads do not meet:
/// com/qmlog/log_file.cpp is compiled with this header in front.
#pragma once

#include <cstdio>
#include <mutex>

inline size_t fwrite_in_turn(const void* octets, size_t size, size_t count, FILE* stream) {
    static auto& turn = *new std::mutex;  // threads that outlive main may still log
    const std::lock_guard lock(turn);
    return fwrite(octets, size, count, stream);
}
#define fwrite fwrite_in_turn
