#include "com/qmlog/log_file.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "com/miscio/text.h"

namespace qmlog {

namespace {

// Octets. A line for which the buffer has room, and some to spare, leaves in one piece by the flush after it. Streams
// may cut others.
constexpr size_t least_buffer_size = size_t{64} * 1024;

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
    while (const std::unique_ptr<kept_line_t> kept{backlog_.load()}) {
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
    std::unique_ptr<output_t> output(output_.exchange(nullptr));
    if (output == nullptr) {
        output = std::make_unique<output_t>(kept_open_);  // another thread is writing
    }
    write_line(*output, line);
    give_back(std::move(output));
}

bool log_file::may_open() const {
    const bool waiting = kept_open_ == nullptr && (flags() & flag_file_wait_for_permission) != 0;
    return opening_allowed_ && !waiting;
}

void log_file::open(output_t& output, size_t line_length) const {
    output.buffer.resize(std::max(line_length + 1, least_buffer_size));
    output.stream = _wfopen(widen(path_).c_str(), TEXT("ab"));
    if (output.stream != nullptr) {
        (void)setvbuf(output.stream, output.buffer.data(), _IOFBF, output.buffer.size());
    }
}

void log_file::write_line(output_t& output, const std::string& line) {
    if (output.stream == nullptr && may_open()) {
        open(output, line.size() + 1);
    }
    if (output.stream == nullptr) {
        if ((flags() & flag_file_keep_backlog) != 0) {
            keep(line);
        }
        return;
    }
    write_backlog(output);
    append(output, line);
    if ((flags() & flag_file_close_each_line) != 0) {
        output.close();
    }
}

void log_file::keep(const std::string& line) {
    auto kept = std::make_unique<kept_line_t>(kept_line_t{line, backlog_.load()});
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
        kept_line_t* oldest = nullptr;
        for (kept_line_t* kept = backlog_.exchange(nullptr); kept != nullptr;) {
            kept_line_t* const before = std::exchange(kept->next, oldest);
            oldest = std::exchange(kept, before);
        }
        while (const std::unique_ptr<kept_line_t> kept{oldest}) {
            oldest = kept->next;
            try {
                append(output, kept->line);
            } catch (const std::bad_alloc&) {  // the line is lost
            }
        }
        backlog_is_being_written_ = false;
    }
}

void log_file::append(output_t& output, const std::string& line) const {
    const std::string whole = line + "\n";
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
