/// A `zpd serve` of our own as a child process. It ends with the object, and when this process dies.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "base/descriptor.h"
#include "base/end_signals.h"

class phone_process_t {
  public:
    struct settings_t {
        std::string modem;
        std::filesystem::path home;  // the child's standard error goes to the file "service.log" in it
        std::string device;
        bool activate = false;
    };

    explicit phone_process_t(settings_t settings) : settings_(std::move(settings)) {}
    /// Asks the child to end, ends it by force when it does not, and reaps it.
    ~phone_process_t();
    phone_process_t(const phone_process_t&) = delete;
    phone_process_t& operator=(const phone_process_t&) = delete;

    /// Each returns an empty text, or what failed.
    [[nodiscard]] std::string start();
    [[nodiscard]] std::string wait_until_ready(const base::end_signals_t& signals, std::chrono::seconds limit);

    const settings_t& settings() const { return settings_; }

  private:
    [[noreturn]] static void become(pid_t parent, char* const* arguments, int output, int log);
    std::string last_words() const;
    bool wait_for_end(int milliseconds) const;

    settings_t settings_;
    pid_t process_ = -1;
    base::descriptor_t handle_;  // of the process
    base::descriptor_t output_;
};
