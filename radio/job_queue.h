/// Jobs for the modem's thread, from any thread, the modem's own among them. Thread-safe.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace radio {

class job_queue_t {
  public:
    using job_t = std::function<void()>;

    /// `wake` is called after each post, on the poster's thread.
    explicit job_queue_t(std::function<void()> wake) : wake_(std::move(wake)) {}

    void post(job_t job) {
        {
            const std::lock_guard lock(mutex_);
            jobs_.push_back(std::move(job));
        }
        wake_();
    }
    size_t size() {
        const std::lock_guard lock(mutex_);
        return jobs_.size();
    }
    /// Takes the first one; an empty function when there is none.
    job_t next() {
        const std::lock_guard lock(mutex_);
        if (jobs_.empty()) {
            return {};
        }
        job_t job = std::move(jobs_.front());
        jobs_.pop_front();
        return job;
    }

  private:
    const std::function<void()> wake_;
    std::mutex mutex_;  // guards the jobs
    std::deque<job_t> jobs_;
};

}  // namespace radio
