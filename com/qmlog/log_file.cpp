#include "com/qmlog/log_file.h"

#include <memory>
#include <utility>

#include "com/miscio/text.h"

namespace qmlog {

namespace {

// Octets. A line that fits leaves in one piece, by the flush after it; unbuffered streams may cut lines.
constexpr size_t buffer_size = size_t{64} * 1024;

}  // namespace

log_file::log_file(object_t& object, std::string path, int32_t maximum)
    : abstract_log_t(default_flags, maximum), path_(std::move(path)), kept_open_(nullptr), output_(new output_t) {
    enter(object.dispatcher());
}

log_file::log_file(object_t& object, FILE* stream)
    : abstract_log_t(default_flags, level_debug), kept_open_(stream), output_(new output_t{stream, {}, {}}) {
    enter(object.dispatcher());
}

log_file::~log_file() {
    leave();
    const std::unique_ptr<output_t> output(output_.load());
    if (output->stream != nullptr && kept_open_ == nullptr) {
        (void)fclose(output->stream);
    }
}

void log_file::allow_opening(bool allowed) {
    if (allowed) {
        set_flags(flags() & ~flag_file_wait_for_permission);
    }
    opening_allowed_ = allowed;
}

void log_file::write(const std::string& line) {
    output_t* output = output_.exchange(nullptr);
    const bool is_the_first = output != nullptr;
    if (!is_the_first) {
        output = new output_t{kept_open_, {}, {}};  // another thread is writing
    }
    write_line(*output, line);
    give_back(output, is_the_first);
}

void log_file::open(output_t& output) {
    const bool waiting = kept_open_ == nullptr && (flags() & flag_file_wait_for_permission) != 0;
    if (!opening_allowed_ || waiting) {
        return;
    }
    output.stream = _wfopen(widen(path_).c_str(), TEXT("ab"));
    if (output.stream != nullptr) {
        output.buffer.resize(buffer_size);
        (void)setvbuf(output.stream, output.buffer.data(), _IOFBF, output.buffer.size());
    }
}

void log_file::write_line(output_t& output, const std::string& line) {
    if (output.stream == nullptr) {
        open(output);
    }
    if (output.stream == nullptr) {
        if ((flags() & flag_file_keep_backlog) != 0) {
            output.backlog.push_back(line);
        }
        return;
    }
    output.backlog.push_back(line);
    for (const std::string& next : std::exchange(output.backlog, {})) {
        const std::string whole = next + "\n";
        (void)fwrite(whole.data(), whole.size(), 1, output.stream);
    }
    (void)fflush(output.stream);
    if ((flags() & flag_file_close_each_line) != 0 && kept_open_ == nullptr) {
        (void)fclose(output.stream);
        output.stream = nullptr;
    }
}

/// Puts the output back, together with what another thread put back meanwhile. The first output's backlog is the older.
void log_file::give_back(output_t* output, bool is_the_first) {
    output_t* none = nullptr;
    while (!output_.compare_exchange_strong(none, output)) {
        none = nullptr;
        const std::unique_ptr<output_t> other(output_.exchange(nullptr));
        if (other == nullptr) {
            continue;
        }
        output->backlog.insert(is_the_first ? output->backlog.end() : output->backlog.begin(), other->backlog.begin(),
                               other->backlog.end());
        if (output->stream == nullptr) {
            output->stream = other->stream;
            output->buffer = std::move(other->buffer);
        } else if (other->stream != nullptr && kept_open_ == nullptr) {
            (void)fclose(other->stream);
        }
    }
}

}  // namespace qmlog
