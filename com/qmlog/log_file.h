/// The sink that appends lines to a text file.
#pragma once

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "com/qmlog/api2.h"

namespace qmlog {

/// Opens its file when the first line comes, and keeps it open. A file that can't be opened loses the line, or with
/// flag_file_keep_backlog keeps it until it can.
///
/// Threads: a thread takes the stream and the backlog as a whole while it writes; another one that comes meanwhile
/// opens the file for itself. Both append whole lines, so that no line is torn and no lock is needed.
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

  private:
    struct output_t {
        FILE* stream = nullptr;
        std::vector<char> buffer;  // the stream's, where it was opened here
        std::vector<std::string> backlog;
    };
    void open(output_t& output);
    void write_line(output_t& output, const std::string& line);
    void give_back(output_t* output, bool is_the_first);

    const std::string path_;
    std::atomic<bool> opening_allowed_{true};
    FILE* const kept_open_;          // the caller's stream, or null
    std::atomic<output_t*> output_;  // null while a thread has it
};

}  // namespace qmlog
