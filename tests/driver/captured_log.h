/// A sink that keeps the lines of the thread that made it, for tests of a class by itself.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "com/qmlog/api2.h"

class captured_log_t final : public qmlog::abstract_log_t {
  public:
    explicit captured_log_t(uint32_t flags = qmlog::flag_message | qmlog::flag_level, int32_t maximum = 7)
        : abstract_log_t(flags, maximum), was_enabled_(qmlog::logging_enabled.exchange(true)) {
        enter(qmlog::process_log().dispatcher());
    }
    ~captured_log_t() override {
        leave();
        qmlog::logging_enabled = was_enabled_;
    }
    captured_log_t(const captured_log_t&) = delete;
    captured_log_t& operator=(const captured_log_t&) = delete;
    void write(const std::string& line) override {
        if (std::this_thread::get_id() == thread_) {
            lines.push_back(line);
        }
    }

    std::vector<std::string> lines;

  private:
    const std::thread::id thread_ = std::this_thread::get_id();
    const bool was_enabled_;
};
