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

    void post(job_t job) { post_to(jobs_, std::move(job)); }
    /// One that goes before all others, behind those of its kind: the network waits for it.
    void post_urgent(job_t job) { post_to(urgent_, std::move(job)); }
    size_t size() {
        const std::lock_guard lock(mutex_);
        return urgent_.size() + jobs_.size();
    }
    /// Takes the first one; an empty function when there is none.
    job_t next() {
        job_t job = next_urgent();
        return job ? job : take_from(jobs_);
    }
    job_t next_urgent() { return take_from(urgent_); }

  private:
    void post_to(std::deque<job_t>& queue, job_t job) {
        {
            const std::lock_guard lock(mutex_);
            queue.push_back(std::move(job));
        }
        wake_();
    }
    job_t take_from(std::deque<job_t>& queue) {
        const std::lock_guard lock(mutex_);
        if (queue.empty()) {
            return {};
        }
        job_t job = std::move(queue.front());
        queue.pop_front();
        return job;
    }

    const std::function<void()> wake_;
    std::mutex mutex_;  // guards the jobs
    std::deque<job_t> urgent_;
    std::deque<job_t> jobs_;
};

}  // namespace radio
