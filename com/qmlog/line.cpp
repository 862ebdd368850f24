// The line of a message: what a sink's flags make of it. At level 7 a datagram on its way leaves some hundred messages,
// so their numbers are written by hand: printf takes ten times as long.
#include <windows.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "com/miscio/utc_time.h"
#include "com/qmlog/api2.h"

namespace qmlog {

namespace {

constexpr size_t usual_length = 512;  // of a line

/// As printf does with "%0*d".
void append_decimal(std::string& text, int value, size_t width = 1) {
    char digits[16];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
    const std::string_view shown(digits, static_cast<size_t>(end - digits));
    text.append(width > shown.size() ? width - shown.size() : 0, '0').append(shown);
}

/// As printf does with "0x%X".
void append_hexadecimal(std::string& text, uint32_t value) {
    char digits[8];
    size_t begin = std::size(digits);
    do {
        digits[--begin] = "0123456789ABCDEF"[value % 16];
        value /= 16;
    } while (value != 0);
    text.append("0x").append(digits + begin, std::size(digits) - begin);
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

    /// Begins an element with the separator.
    std::string& element() {
        text += separator;
        separator = " ";
        return text;
    }
};

const char* monotonic_text(uint32_t flags) {
    constexpr uint32_t milliseconds = flag_monotonic | flag_monotonic_milliseconds;
    constexpr uint32_t microseconds = milliseconds | flag_monotonic_microseconds;
    // The platform has no monotonic clock: the text stands for it, and its fractions are empty.
    const uint32_t precision = flags & flags_monotonic;
    const bool has_fraction = precision == milliseconds || precision == microseconds ||
                              precision == (microseconds | flag_monotonic_nanoseconds);
    return has_fraction ? "monotonic=n/a." : "monotonic=n/a";
}

/// "%sGMT%s": the text of the offset is empty.
const char* zone_text(uint32_t flags) {
    switch (flags & flags_zone) {
        case flag_time_zone:
            return "(TZ=n/a)";
        case flag_gmt_offset:
            return "(GMT)";
        default:
            return "(TZ=n/a,GMT)";
    }
}

void append_time(line_t& line, uint32_t flags, record_t& record) {
    constexpr uint32_t milliseconds = flag_time | flag_time_milliseconds;
    record.time(line.element());
    // The clock has no finer part than seconds.
    if ((flags & flags_time) == flags_time) {
        line.text += ".000000";
    } else if ((flags & flags_time) == milliseconds) {
        line.text += ".000";
    }
}

void append_groups(line_t& line, uint32_t flags, record_t& record) {
    if ((flags & flags_first_group) != 0) {
        line.text += "[";
        if ((flags & flags_monotonic) != 0) {
            line.element() += monotonic_text(flags);
        }
        if ((flags & flags_zone) != 0) {
            line.element() += zone_text(flags);
        }
        if ((flags & flag_date) != 0) {
            record.date(line.element());
        }
        if ((flags & flags_time) != 0) {
            append_time(line, flags, record);
        }
        if ((flags & flag_process_name) != 0) {
            line.element().append("'").append(record.process_name()).append("'");  // "%s'%s'"
        }
        line.text += "]";
    }
    if ((flags & (flag_thread | flag_thread_number)) != 0) {
        const uint32_t thread = GetCurrentThreadId();
        line.element() += "[";
        if ((flags & flag_thread) != 0) {
            append_hexadecimal(line.text, thread);
        }
        if ((flags & flag_thread_number) != 0) {
            append_hexadecimal(line.text += ",", thread);
        }
        line.text += "]";
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

/// The format buffer starts on the stack and is doubled until the text fits: a message is never cut.
void record_t::message(std::string& line) {
    char inline_buffer[256];
    std::vector<char> heap_buffer;
    char* buffer = inline_buffer;
    size_t size = sizeof inline_buffer;
    while (true) {
        va_list copy;
        va_copy(copy, arguments_);  // NOLINT(clang-analyzer-valist.Uninitialized): it does not see the constructor's
        const int length = vsnprintf(buffer, size, format_, copy);
        va_end(copy);
        if (length < static_cast<int>(size)) {
            line.append(buffer, length < 0 ? 0 : static_cast<size_t>(length));
            return;
        }
        size *= 2;
        heap_buffer.resize(size);
        buffer = heap_buffer.data();
    }
}

int32_t record_t::seconds() {
    if (!captured_) {
        captured_ = utc_seconds().value_or(0);
    }
    return *captured_;
}

/// "%d-%02d-%02d"
void record_t::date(std::string& line) {
    const std::chrono::year_month_day day(std::chrono::sys_days(std::chrono::days(seconds() / 86400)));
    append_decimal(line, static_cast<int>(day.year()));
    append_decimal(line += "-", static_cast<int>(static_cast<unsigned>(day.month())), 2);
    append_decimal(line += "-", static_cast<int>(static_cast<unsigned>(day.day())), 2);
}

/// "%02d:%02d:%02d"
void record_t::time(std::string& line) {
    const int32_t second_of_day = seconds() % 86400;
    append_decimal(line, second_of_day / 3600, 2);
    append_decimal(line += ":", second_of_day / 60 % 60, 2);
    append_decimal(line += ":", second_of_day % 60, 2);
}

void abstract_log_t::log(record_t& record) {
    const uint32_t shown = flags();
    const place_t& place = record.place();
    const bool with_message = record.has_message() && (shown & flag_message) != 0;
    const bool with_location = place.line >= 1 && (shown & flag_location) != 0;
    const bool with_function = *place.function != '\0' && (shown & flag_function) != 0;
    const bool with_place = with_location || with_function;

    line_t line;
    line.text.reserve(usual_length);
    append_groups(line, shown, record);
    const size_t groups_length = line.text.size();
    if ((shown & flag_level) != 0) {
        line.element() += level_name(record.level());
        if (!with_message || !with_place) {
            line.text += with_message || with_place ? ":" : ".";
        }
    }
    if (with_location) {  // "%sat %s:%d"
        line.element().append("at ").append(file_name(place.file)).append(":");
        append_decimal(line.text, place.line);
    }
    if (with_function) {  // "%sin %s"
        line.element().append("in ").append(place.function);
    }
    if (with_message && with_place) {
        line.text += ":";
    }
    if ((shown & flag_header_line) != 0 && with_function && with_message) {
        std::string second;
        second.reserve(usual_length);
        second.append(line.text, 0, groups_length).append(" -- ");
        record.message(second);
        write_pair(line.text, second);
        return;
    }
    if (with_message) {
        record.message(line.element());
    }
    write(line.text);
}

void abstract_log_t::write_pair(const std::string& header, const std::string& line) {
    write(header);
    write(line);
}

void abstract_log_t::set_threshold(int32_t threshold) {
    if (threshold <= maximum_) {
        threshold_.store(threshold, std::memory_order_relaxed);
        if (dispatcher_ != nullptr) {
            dispatcher_->find_highest_threshold();
        }
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

log_retail::log_retail(object_t& object) : abstract_log_t(retail_flags, level_debug, false), object_(object) {
    enter(object.dispatcher());
}

log_retail::~log_retail() {
    leave();
    object_.forget_retail(this);
}

void log_retail::write(const std::string&) {}

}  // namespace qmlog
