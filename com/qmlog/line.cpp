// The line of a message: what a sink's flags make of it.
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "com/miscio/utc_time.h"
#include "com/qmlog/api2.h"

namespace qmlog {

namespace {

/// The format buffer starts on the stack and is doubled until the text fits: a message is never cut. `arguments` can be
/// used again.
std::string formatted(const char* format, va_list arguments) {
    char inline_buffer[256];
    std::vector<char> heap_buffer;
    char* buffer = inline_buffer;
    size_t size = sizeof inline_buffer;
    while (true) {
        va_list copy;
        va_copy(copy, arguments);  // NOLINT(clang-analyzer-valist.Uninitialized): it does not see the constructor's
        const int length = vsnprintf(buffer, size, format, copy);
        va_end(copy);
        if (length < 0) {
            return {};
        }
        if (static_cast<size_t>(length) < size) {
            return {buffer, static_cast<size_t>(length)};
        }
        size *= 2;
        heap_buffer.resize(size);
        buffer = heap_buffer.data();
    }
}

std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string result = formatted(format, arguments);
    va_end(arguments);
    return result;
}

const char* level_name(int32_t level) {
    static constexpr const char* names[] = {"INTERNAL ERROR", "CRITICAL ERROR", "ERROR", "WARNING",
                                            "NOTICE",         "INFO",           "DEBUG"};
    return level >= level_internal_error && level <= level_debug ? names[level - 1] : "OOPS";
}

/// A line under construction. The separator is empty until the first element stands.
struct line_t {
    std::string text;
    const char* separator = "";

    void element(const std::string& piece) { append(separator + piece); }
    /// An element that begins with the separator.
    void append(const std::string& piece) {
        text += piece;
        separator = " ";
    }
};

std::string monotonic_text(uint32_t flags) {
    constexpr uint32_t milliseconds = flag_monotonic | flag_monotonic_milliseconds;
    constexpr uint32_t microseconds = milliseconds | flag_monotonic_microseconds;
    // The platform has no monotonic clock: the text stands for it, and its fractions are empty.
    const uint32_t precision = flags & flags_monotonic;
    const bool has_fraction = precision == milliseconds || precision == microseconds ||
                              precision == (microseconds | flag_monotonic_nanoseconds);
    return has_fraction ? "monotonic=n/a." : "monotonic=n/a";
}

std::string zone_text(uint32_t flags) {
    std::string result = "(";
    if ((flags & flag_time_zone) != 0) {
        result += "TZ=n/a";
    }
    if ((flags & flag_gmt_offset) != 0) {
        result += text("%sGMT%s", (flags & flag_time_zone) != 0 ? "," : "", "");  // the offset's text is empty
    }
    return result + ")";
}

std::string time_text(uint32_t flags, record_t& record) {
    constexpr uint32_t milliseconds = flag_time | flag_time_milliseconds;
    std::string result = record.time();
    if ((flags & flags_time) == flags_time) {
        result += "." + record.microseconds();
    } else if ((flags & flags_time) == milliseconds) {
        result += "." + record.milliseconds();
    }
    return result;
}

void append_groups(line_t& line, uint32_t flags, record_t& record) {
    if ((flags & flags_first_group) != 0) {
        line.text += "[";
        if ((flags & flags_monotonic) != 0) {
            line.element(monotonic_text(flags));
        }
        if ((flags & flags_zone) != 0) {
            line.element(zone_text(flags));
        }
        if ((flags & flag_date) != 0) {
            line.element(record.date());
        }
        if ((flags & flags_time) != 0) {
            line.element(time_text(flags, record));
        }
        if ((flags & flag_process_name) != 0) {
            line.append(text("%s'%s'", line.separator, record.process_name().c_str()));
        }
        line.text += "]";
    }
    if ((flags & (flag_thread | flag_thread_number)) != 0) {
        const uint32_t thread = GetCurrentThreadId();
        const std::string name = (flags & flag_thread) != 0 ? text("0x%X", thread) : "";
        const std::string number = (flags & flag_thread_number) != 0 ? text(",0x%X", thread) : "";
        line.element("[" + name + number + "]");
    }
}

/// What follows the last backslash or slash of a source file's path.
const char* file_name(const char* path) {
    const size_t directory = std::string_view(path).find_last_of("\\/");
    return directory == std::string_view::npos ? path : path + directory + 1;
}

}  // namespace

record_t::record_t(const object_t& object, int32_t level, const place_t& place, const char* format, va_list arguments)
    : object_(object), level_(level), place_(place), format_(format) {
    va_copy(arguments_, arguments);
}

record_t::~record_t() {
    va_end(arguments_);
}

const std::string& record_t::process_name() const {
    return object_.process_name();
}

std::string record_t::message() {
    return formatted(format_, arguments_);
}

void record_t::capture_time() {
    if (!time_captured_) {
        seconds_ = utc_seconds().value_or(0);
        time_captured_ = true;
    }
}

const std::string& record_t::date() {
    if (date_text_.empty()) {
        capture_time();
        const std::chrono::year_month_day day(std::chrono::sys_days(std::chrono::days(seconds_ / 86400)));
        date_text_ = text("%d-%02d-%02d", static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                          static_cast<unsigned>(day.day()));
    }
    return date_text_;
}

const std::string& record_t::time() {
    if (time_text_.empty()) {
        capture_time();
        const int32_t second_of_day = seconds_ % 86400;
        time_text_ = text("%02d:%02d:%02d", second_of_day / 3600, second_of_day / 60 % 60, second_of_day % 60);
    }
    return time_text_;
}

const std::string& record_t::milliseconds() {
    if (milliseconds_text_.empty()) {
        capture_time();
        milliseconds_text_ = text("%03d", microseconds_ / 1000);
    }
    return milliseconds_text_;
}

const std::string& record_t::microseconds() {
    if (microseconds_text_.empty()) {
        capture_time();
        microseconds_text_ = text("%06d", microseconds_);
    }
    return microseconds_text_;
}

void abstract_log_t::log(record_t& record) {
    const uint32_t shown = flags();
    const place_t& place = record.place();
    const bool with_message = record.has_message() && (shown & flag_message) != 0;
    const bool with_location = place.line >= 1 && (shown & flag_location) != 0;
    const bool with_function = *place.function != '\0' && (shown & flag_function) != 0;
    const bool with_place = with_location || with_function;

    line_t line;
    append_groups(line, shown, record);
    const size_t groups_length = line.text.size();
    if ((shown & flag_level) != 0) {
        line.element(level_name(record.level()));
        if (!with_message || !with_place) {
            line.text += with_message || with_place ? ":" : ".";
        }
    }
    if (with_location) {
        line.append(text("%sat %s:%d", line.separator, file_name(place.file), place.line));
    }
    if (with_function) {
        line.append(text("%sin %s", line.separator, place.function));
    }
    if (with_message && with_place) {
        line.text += ":";
    }
    if ((shown & flag_header_line) != 0 && with_function && with_message) {
        write(line.text);
        line.text.resize(groups_length);
        line.separator = " -- ";
    }
    if (with_message) {
        line.element(record.message());
    }
    write(line.text);
}

void abstract_log_t::set_threshold(int32_t threshold) {
    if (threshold <= maximum_) {
        threshold_.store(threshold, std::memory_order_relaxed);
    }
}

void abstract_log_t::enter(dispatcher_t& dispatcher) {
    dispatcher_ = &dispatcher;
    dispatcher_->add(this);
}

void abstract_log_t::leave() {
    dispatcher_->remove(this);
    dispatcher_ = nullptr;
}

log_retail::log_retail(object_t& object) : abstract_log_t(retail_flags, level_debug), object_(object) {
    enter(object.dispatcher());
}

log_retail::~log_retail() {
    leave();
    object_.forget_retail(this);
}

void log_retail::write(const std::string&) {}

}  // namespace qmlog
