#include <windows.h>

#include <chrono>
#include <optional>

#include "platform/linux/injection.h"
#include "platform/linux/last_error.h"

namespace {

using namespace std::chrono;
using hundred_ns_t = duration<int64_t, std::ratio<1, 10'000'000>>;

constexpr sys_days epoch_1601 = year{1601} / January / 1;

FILETIME split(int64_t since_1601) {
    const auto count = static_cast<uint64_t>(since_1601);
    return {static_cast<DWORD>(count), static_cast<DWORD>(count >> 32)};
}

std::optional<sys_time<milliseconds>> point_in_time(const SYSTEMTIME& time) {
    // 30827 is the last year that the platform's calendar knows.
    const bool in_range = time.wYear >= 1601 && time.wYear <= 30827 && time.wHour < 24 && time.wMinute < 60 &&
                          time.wSecond < 60 && time.wMilliseconds < 1000;
    const year_month_day date{year{time.wYear}, month{time.wMonth}, day{time.wDay}};
    if (!in_range || !date.ok()) {
        return std::nullopt;
    }
    return sys_days{date} + hours{time.wHour} + minutes{time.wMinute} + seconds{time.wSecond} +
           milliseconds{time.wMilliseconds};
}

}  // namespace

void GetSystemTime(SYSTEMTIME* time) {
    timespec clock_time{};
    clock_gettime(CLOCK_REALTIME_COARSE, &clock_time);  // of the last tick, as that of Windows CE and of files
    const sys_time<milliseconds> now(seconds(clock_time.tv_sec) + milliseconds(clock_time.tv_nsec / 1'000'000));
    const auto today = floor<days>(now);
    const year_month_day date{today};
    const hh_mm_ss clock{now - today};
    *time = {
        .wYear = static_cast<WORD>(static_cast<int>(date.year())),
        .wMonth = static_cast<WORD>(static_cast<unsigned>(date.month())),
        .wDayOfWeek = static_cast<WORD>(weekday{today}.c_encoding()),
        .wDay = static_cast<WORD>(static_cast<unsigned>(date.day())),
        .wHour = static_cast<WORD>(clock.hours().count()),
        .wMinute = static_cast<WORD>(clock.minutes().count()),
        .wSecond = static_cast<WORD>(clock.seconds().count()),
        .wMilliseconds = static_cast<WORD>(clock.subseconds().count()),
    };
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* file_time) {
    if (const auto error = platform::injected_failure(__func__)) {
        return platform::failed(*error, FALSE);
    }
    const auto point = time == nullptr ? std::nullopt : point_in_time(*time);
    if (!point || file_time == nullptr) {
        return platform::failed(ERROR_INVALID_PARAMETER, FALSE);
    }
    *file_time = split(hundred_ns_t{*point - epoch_1601}.count());
    return TRUE;
}
