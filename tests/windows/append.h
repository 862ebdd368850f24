/// What Windows does in one step when a file is written that was opened for appending, Wine does in two: it looks where
/// the file ends and writes there. The log's writes, each of which is a flush, take turns, so that lines of two threads
/// do not meet: com/qmlog/log_file.cpp is compiled with this header in front.
#pragma once

#include <cstdio>
#include <mutex>

inline int fflush_in_turn(FILE* stream) {
    static auto& turn = *new std::mutex;  // threads that outlive main may still log
    const std::lock_guard lock(turn);
    return fflush(stream);
}
#define fflush fflush_in_turn
