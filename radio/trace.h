/// A record of the dialogue with a modem, as `zpd serve --trace` writes it: in the form of the tests' transcripts, so
/// that the record of a fault is its test. What the radio says stands behind ">", what the modem says behind "<", or
/// behind "!" once the command has its result; above a line, where it has changed, the time as a comment, seconds since
/// the beginning. A PIN is not in it.
///
/// The file is its owner's alone. It takes so much, then it becomes the older one, FILE.1, as does one that is there at
/// the start, and a new one begins. A thread writes it: nobody waits for a disk, and what the disk does not take in
/// time is missing, told there. When it cannot be written any more, that is warned of once, and the record ends.
///
/// `sent` and `received` are for one thread, and do nothing before `open`.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "base/descriptor.h"

namespace radio {

class trace_t {
  public:
    static constexpr size_t usual_size = 10'000'000;  // octets

    explicit trace_t(size_t size = usual_size) : size_(size) {}
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
    void end_received();
    void add_line(std::string_view mark, const std::string& text);
    void run();
    [[nodiscard]] std::string begin_file();
    [[nodiscard]] bool write_out(std::string_view text);

    const size_t size_;
    std::filesystem::path file_;
    std::string sent_, received_;  // lines that have not ended
    bool pin_sent_ = false;        // by the latest command
    bool answered_ = false;        // the latest command has its result
    uint64_t begun_at_ = 0;        // on tick64
    uint64_t told_ = UINT64_MAX;   // the time of the last line, milliseconds

    base::descriptor_t descriptor_;  // the thread's, as is the next
    size_t written_ = 0;

    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::string waiting_;
    bool open_ = false;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace radio
