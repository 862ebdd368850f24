/// Tells the service manager that the service is ready, and from then on, until its end, that it is well and what it
/// does. Without a service manager there is no thread, and nothing happens.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "service/service_manager.h"

class life_signs_t {
  public:
    /// Asks all that a card depends on, on a thread of its own, and says in a line what the service does; none when
    /// something does not work. One that does not return is no sign of life either.
    using look_t = std::function<std::optional<std::string>()>;

    /// The manager outlives the object.
    explicit life_signs_t(const service_manager_t& manager) : manager_(manager) {}
    ~life_signs_t() { end(); }
    life_signs_t(const life_signs_t&) = delete;
    life_signs_t& operator=(const life_signs_t&) = delete;

    /// Once. What `look` uses outlives `end`.
    void begin(look_t look);
    void end();
    /// The line may be another now: it is asked for soon. At any time, from any thread; never waits for `look`.
    void wake();

  private:
    void run();
    void wait();

    const service_manager_t& manager_;
    look_t look_;
    std::string told_;
    std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    bool woken_ = false;
    bool stopping_ = false;
    std::thread thread_;
};
