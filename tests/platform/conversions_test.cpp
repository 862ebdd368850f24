#include <digest.h>

#include "base/hex.h"
#include "tests/platform/fixture.h"

TEST(code_page, tells_the_size_and_delivers_only_what_fits) {
    const std::u16string wide = u"\u00E9\U0001F600";
    char narrow[8] = "#######";
    const auto narrowed = [&](int length, int room) {
        return poisoned(
            [&] { return WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), length, narrow, room, nullptr, nullptr); });
    };
    EXPECT_EQ(narrowed(-1, 0), std::pair(7, poison));
    EXPECT_EQ(narrowed(3, 5), std::pair(0, ERROR_INSUFFICIENT_BUFFER));
    EXPECT_STREQ(narrow, "#######");
    EXPECT_EQ(narrowed(3, 6), std::pair(6, poison));
    EXPECT_STREQ(narrow, "\u00E9\U0001F600#");
    EXPECT_EQ(narrowed(0, 8), std::pair(0, ERROR_INVALID_PARAMETER));
    WCHAR back[4] = {u'#', u'#', u'#', u'#'};
    const auto widened = [&](DWORD page, DWORD flags, int room) {
        return poisoned([&] { return MultiByteToWideChar(page, flags, narrow, 6, back, room); });
    };
    EXPECT_EQ(widened(CP_UTF8, 0, 0), std::pair(3, poison));
    EXPECT_EQ(widened(CP_UTF8, 0, 2), std::pair(0, ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(widened(CP_UTF8, 0, 3), std::pair(3, poison));
    EXPECT_EQ(std::u16string(back, 4), wide + u"#");
    EXPECT_EQ(widened(0, 0, 3), std::pair(0, ERROR_INVALID_PARAMETER));
    EXPECT_EQ(widened(CP_UTF8, 8, 3), std::pair(0, ERROR_INVALID_PARAMETER));
}

TEST(digest, agrees_with_rfc_1321) {  // A.5
    EXPECT_EQ(base::to_hex(md5_digest("", 0).value()), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(base::to_hex(md5_digest("abc", 3).value()), "900150983CD24FB0D6963F7D28E17F72");
}

TEST(system_time, becomes_a_file_time_or_is_refused) {
    const auto ticks_of = [](const SYSTEMTIME& time) {
        FILETIME result{};
        const auto outcome = poisoned([&] { return SystemTimeToFileTime(&time, &result); });
        return std::pair(outcome, uint64_t{result.dwHighDateTime} << 32 | result.dwLowDateTime);
    };
    const std::pair<SYSTEMTIME, uint64_t> rows[] = {
        {{1970, 1, 0, 1, 0, 0, 0, 0}, 116444736000000000},
        {{2000, 2, 9, 29, 23, 59, 59, 999}, 125963423999990000},  // the day of the week does not count
        {{1601, 1, 0, 1, 0, 0, 0, 1}, 10000}};
    for (const auto& [time, ticks] : rows) {
        EXPECT_EQ(ticks_of(time), std::pair(std::pair(TRUE, poison), ticks));
    }
    const SYSTEMTIME refused[] = {
        {1900, 2, 0, 29, 0, 0, 0, 0},   {2024, 13, 0, 1, 0, 0, 0, 0},  {2024, 1, 0, 0, 0, 0, 0, 0},
        {2024, 1, 0, 1, 24, 0, 0, 0},   {2024, 1, 0, 1, 0, 60, 0, 0},  {2024, 1, 0, 1, 0, 0, 60, 0},
        {2024, 1, 0, 1, 0, 0, 0, 1000}, {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0}};
    for (const SYSTEMTIME& time : refused) {
        EXPECT_EQ(ticks_of(time), std::pair(std::pair(FALSE, ERROR_INVALID_PARAMETER), uint64_t{0}));
    }
    SYSTEMTIME now{};
    GetSystemTime(&now);
    FILETIME result{};
    ASSERT_TRUE(SystemTimeToFileTime(&now, &result));
    const uint64_t ticks = uint64_t{result.dwHighDateTime} << 32 | result.dwLowDateTime;
    EXPECT_LE(std::abs(time(nullptr) - static_cast<int64_t>(ticks / 10'000'000 - 11'644'473'600)), 2);
    EXPECT_EQ(now.wDayOfWeek, (ticks / 864'000'000'000 + 1) % 7);  // 1601-01-01 was a Monday
}
