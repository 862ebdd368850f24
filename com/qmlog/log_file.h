/// The sink that appends lines to a text file.
#pragma once

#include <atomic>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "com/qmlog/api2.h"

namespace qmlog {

/// Opens its file when the first line comes, and keeps it open. A file that can't be opened loses the line, or with
/// flag_file_keep_backlog keeps it until it can. Whoever opens it then writes what was kept before a line of its own.
///
/// Threads: a thread takes the stream while it writes; another one that comes meanwhile opens the file for itself. Both
/// append whole lines, for which the stream's buffer grows, so that no line is torn and no lock is needed. Only where a
/// backlog is being written the others wait for its end. A line that memory is missing for is lost.
class log_file final : public abstract_log_t {
  public:
    /// Registers with `object`. `path` is a path of the platform in UTF-8.
    log_file(object_t& object, std::string path, int32_t maximum = level_debug);
    /// Writes to a stream that stays open and the caller's.
    log_file(object_t& object, FILE* stream);
    ~log_file() override;
    log_file(const log_file&) = delete;
    log_file& operator=(const log_file&) = delete;

    /// Whether the file may be opened; it may at first. True also ends the wait of flag_file_wait_for_permission.
    void allow_opening(bool allowed);

    void write(const std::string& line) override;
    /// In one piece.
    void write_pair(const std::string& header, const std::string& line) override;

  private:
    using lines_t = std::initializer_list<std::string_view>;  // what leaves in one piece
    /// A stream, and its buffer where it was opened here.
    struct output_t {
        explicit output_t(FILE* kept_open) : stream(kept_open), is_ours(kept_open == nullptr) {}
        ~output_t() { close(); }
        output_t(const output_t&) = delete;
        output_t& operator=(const output_t&) = delete;
        void close();

        FILE* stream;
        const bool is_ours;
        std::vector<char> buffer;
    };
    struct kept_t {
        std::string lines;  // without the last one's end
        kept_t* next;       // what came before
    };
    bool may_open() const;
    void enter_with_output(object_t& object);
    void open(output_t& output, size_t length) const;
    void write_lines(lines_t lines);
    void write_to(output_t& output, lines_t lines);
    void keep(lines_t lines);
    void write_backlog(output_t& output);
    void append(output_t& output, lines_t lines) const;
    void give_back(std::unique_ptr<output_t> output);

    const std::string path_;
    std::atomic<bool> opening_allowed_{true};
    FILE* const kept_open_;                   // the caller's stream, or null
    std::atomic<output_t*> output_{nullptr};  // null while a thread has it
    std::atomic<kept_t*> backlog_{nullptr};
    std::atomic<bool> backlog_is_being_written_{false};
};

}  // namespace qmlog
