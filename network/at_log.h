/// A record of what a modem and its hosts say, as `zpd network --at-log` writes it: of the form of `zpd serve --trace`
/// (base/dialogue_record.h), as it goes over the modem's line, into a file of base/record_file.h. When it cannot be
/// written any more, that is told once, and the record ends; the modem goes on. Not thread-safe.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "base/dialogue_record.h"
#include "base/record_file.h"

namespace network {

class at_log_t {
  public:
    using told_t = std::function<void(const std::string& what)>;

    /// Null, with what failed, on what and why in `error`, when the file cannot be begun.
    static std::unique_ptr<at_log_t> open(const std::filesystem::path& file, told_t told, std::string* error);
    ~at_log_t();
    at_log_t(const at_log_t&) = delete;
    at_log_t& operator=(const at_log_t&) = delete;

    void host_says(std::string_view octets);
    /// `more`: the modem has more to say, for which the line has no room yet.
    void modem_says(std::string_view octets, bool more);

  private:
    explicit at_log_t(told_t told);
    void end_piece();
    void write();

    base::dialogue_record_t record_;
    base::record_file_t file_;
    std::string piece_;  // of what the modem says at once: where a line ends shows when it has been said
    const told_t told_;
    bool writable_ = true;
};

}  // namespace network
