/// A record of the dialogue with a modem, as `zpd serve --trace` writes it: in the form of the tests' transcripts
/// (base/dialogue_record.h), so that the record of a fault is its test, into a file of base/record_file.h.
///
/// A thread writes it: nobody waits for a disk, and what the disk does not take in time is missing, told there. When it
/// cannot be written any more, that is warned of once, and the record ends.
///
/// `sent` and `received` are for one thread, and do nothing before `open`.
#pragma once

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "base/dialogue_record.h"
#include "base/record_file.h"

namespace radio {

class trace_t {
  public:
    explicit trace_t(size_t size = base::record_file_t::usual_size) : file_(size) {}
    /// Writes what is left.
    ~trace_t();
    trace_t(const trace_t&) = delete;
    trace_t& operator=(const trace_t&) = delete;

    /// Begins the record; once. Returns an empty text, or what failed, on what, and why.
    [[nodiscard]] std::string open(const std::filesystem::path& file);

    /// What went over the tty, in pieces of any size.
    void sent(std::string_view octets);
    void received(std::string_view octets);

  private:
    void pass_on();
    void run();

    std::optional<base::dialogue_record_t> record_;  // since it was opened
    base::record_file_t file_;                       // the thread's, while there is one

    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::string waiting_;
    bool open_ = false;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace radio
