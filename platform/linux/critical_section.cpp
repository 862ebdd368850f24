#include <windows.h>

#include <mutex>

namespace {

std::recursive_mutex& mutex_of(CRITICAL_SECTION* section) {
    return *static_cast<std::recursive_mutex*>(section->implementation);
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section) {
    section->implementation = new std::recursive_mutex;
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
    delete &mutex_of(section);
    section->implementation = nullptr;
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
    mutex_of(section).lock();
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
    mutex_of(section).unlock();
}
