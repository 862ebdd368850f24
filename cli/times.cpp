#include "cli/times.h"

#include <charconv>
#include <ctime>
#include <initializer_list>

#include "base/duration.h"

namespace {

std::optional<uint64_t> seconds_in(const std::string& text) {
    uint64_t seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, seconds);
    return error == std::errc() && stopped == end ? std::optional(seconds) : std::nullopt;
}

/// Of a day that there is: 31 February is none.
std::optional<uint64_t> date_in(const std::string& text, const char* format) {
    tm parts{};
    const char* const stopped = strptime(text.c_str(), format, &parts);
    if (stopped == nullptr || *stopped != '\0') {
        return std::nullopt;
    }
    const int day = parts.tm_mday;
    parts.tm_isdst = -1;
    const time_t time = mktime(&parts);
    return time >= 0 && parts.tm_mday == day ? std::optional(static_cast<uint64_t>(time)) : std::nullopt;
}

}  // namespace

std::string local_time(uint64_t since_1970) {
    const auto time = static_cast<time_t>(since_1970);
    tm parts{};
    char text[32];
    if (localtime_r(&time, &parts) == nullptr || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(since_1970);
    }
    return text;
}

std::optional<uint64_t> read_time(const std::string& text) {
    if (const auto ago = base::read_duration(text)) {
        const auto now = static_cast<uint64_t>(time(nullptr));
        return now > *ago ? now - *ago : 0;
    }
    if (const auto seconds = seconds_in(text)) {
        return seconds;
    }
    for (const char* format : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S"}) {
        if (const auto seconds = date_in(text, format)) {
            return seconds;
        }
    }
    return std::nullopt;
}
