#include "com/qmlog/log_file.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "com/miscio/text.h"

namespace qmlog {

namespace {

// Octets. What the buffer has room for, and some to spare, leaves in one piece by the flush after it. Streams may cut
// others.
constexpr size_t least_buffer_size = size_t{64} * 1024;

/// With their ends.
size_t size_of(std::initializer_list<std::string_view> lines) {
    size_t size = 0;
    for (const std::string_view line : lines) {
        size += line.size() + 1;
    }
    return size;
}

}  // namespace

void log_file::output_t::close() {
    if (stream != nullptr && is_ours) {
        (void)fclose(stream);
        stream = nullptr;
    }
}

log_file::log_file(object_t& object, std::string path, int32_t maximum)
    : abstract_log_t(default_flags, maximum), path_(std::move(path)), kept_open_(nullptr) {
    enter_with_output(object);
}

log_file::log_file(object_t& object, FILE* stream) : abstract_log_t(default_flags, level_debug), kept_open_(stream) {
    enter_with_output(object);
}

/// The output is freed if there is no memory to enter.
void log_file::enter_with_output(object_t& object) {
    auto output = std::make_unique<output_t>(kept_open_);
    output_ = output.get();
    enter(object.dispatcher());
    (void)output.release();  // this object's, or a writing thread's
}

log_file::~log_file() {
    leave();
    delete output_.load();
    while (const std::unique_ptr<kept_t> kept{backlog_.load()}) {
        backlog_ = kept->next;
    }
}

void log_file::allow_opening(bool allowed) {
    if (allowed) {
        set_flags(flags() & ~flag_file_wait_for_permission);
    }
    opening_allowed_ = allowed;
}

void log_file::write(const std::string& line) {
    write_lines({line});
}

void log_file::write_pair(const std::string& header, const std::string& line) {
    write_lines({header, line});
}

void log_file::write_lines(lines_t lines) {
    std::unique_ptr<output_t> output(output_.exchange(nullptr));
    if (output == nullptr) {
        output = std::make_unique<output_t>(kept_open_);  // another thread is writing
    }
    write_to(*output, lines);
    give_back(std::move(output));
}

bool log_file::may_open() const {
    const bool waiting = kept_open_ == nullptr && (flags() & flag_file_wait_for_permission) != 0;
    return opening_allowed_ && !waiting;
}

void log_file::open(output_t& output, size_t length) const {
    output.buffer.resize(std::max(length + 1, least_buffer_size));
    output.stream = _wfopen(widen(path_).c_str(), TEXT("ab"));
    if (output.stream != nullptr) {
        (void)setvbuf(output.stream, output.buffer.data(), _IOFBF, output.buffer.size());
    }
}

void log_file::write_to(output_t& output, lines_t lines) {
    if (output.stream == nullptr && may_open()) {
        open(output, size_of(lines));
    }
    if (output.stream == nullptr) {
        if ((flags() & flag_file_keep_backlog) != 0) {
            keep(lines);
        }
        return;
    }
    write_backlog(output);
    append(output, lines);
    if ((flags() & flag_file_close_each_line) != 0) {
        output.close();
    }
}

void log_file::keep(lines_t lines) {
    auto kept = std::make_unique<kept_t>(kept_t{"", backlog_.load()});
    for (const std::string_view line : lines) {
        kept->lines.append(line).append("\n");
    }
    kept->lines.pop_back();
    while (!backlog_.compare_exchange_weak(kept->next, kept.get())) {
    }
    (void)kept.release();  // the backlog's
}

/// Returns when no kept line is left, also none that another thread has taken out to write it.
void log_file::write_backlog(output_t& output) {
    while (backlog_.load() != nullptr || backlog_is_being_written_.load()) {
        if (backlog_is_being_written_.exchange(true)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        kept_t* oldest = nullptr;
        for (kept_t* kept = backlog_.exchange(nullptr); kept != nullptr;) {
            kept_t* const before = std::exchange(kept->next, oldest);
            oldest = std::exchange(kept, before);
        }
        while (const std::unique_ptr<kept_t> kept{oldest}) {
            oldest = kept->next;
            try {
                append(output, {kept->lines});
            } catch (const std::bad_alloc&) {  // the line is lost
            }
        }
        backlog_is_being_written_ = false;
    }
}

/// By one call: streams may write what several bring one by one.
void log_file::append(output_t& output, lines_t lines) const {
    std::string whole;
    whole.reserve(size_of(lines));
    for (const std::string_view line : lines) {
        whole.append(line).append("\n");
    }
    if (output.is_ours && whole.size() >= output.buffer.size()) {
        output.close();
        open(output, whole.size());
    }
    if (output.stream != nullptr) {
        (void)fwrite(whole.data(), whole.size(), 1, output.stream);
        (void)fflush(output.stream);
    }
}

/// Puts the output back; what another thread put back meanwhile is closed, unless it alone has a stream.
void log_file::give_back(std::unique_ptr<output_t> output) {
    output_t* none = nullptr;
    while (!output_.compare_exchange_strong(none, output.get())) {
        none = nullptr;
        std::unique_ptr<output_t> other(output_.exchange(nullptr));
        if (other != nullptr && other->stream != nullptr && output->stream == nullptr) {
            output.swap(other);
        }
    }
    (void)output.release();  // the sink's
}

}  // namespace qmlog
