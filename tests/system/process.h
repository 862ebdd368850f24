/// A zpd process: started, watched and ended as a person does it in a terminal. Destroyed while it runs, it is killed.
/// Every wait has a limit.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

using arguments_t = std::vector<std::string>;

/// Looks again and again until it holds; false when that takes longer than the limit.
bool eventually(const std::function<bool()>& holds, std::chrono::seconds limit = std::chrono::seconds(60));

class process_t {
  public:
    /// Runs the zpd under test.
    explicit process_t(const arguments_t& arguments);
    ~process_t();
    process_t(const process_t&) = delete;
    process_t& operator=(const process_t&) = delete;

    pid_t id() const { return id_; }
    /// Waits until a line of the standard output begins with `prefix`; false when it ends without one.
    bool wait_for_line(const std::string& prefix);
    void signal(int number) const;
    /// Waits for the end: the exit status, or 128 + the signal that ended it; none when that takes over a minute.
    std::optional<int> wait();

    /// What it has written so far.
    std::string output() const;
    std::string errors() const;

  private:
    bool has_ended();

    int output_;  // memory files that the process writes
    int errors_;
    pid_t id_;
    std::optional<int> status_;
};

/// What a command came to.
struct outcome_t {
    int status = -1;  // -1: it did not end in time and was killed
    std::string output;
    std::string errors;
};
outcome_t zpd(const arguments_t& arguments);
