#include "radio/callbacks.h"

#include <chrono>
#include <utility>

#include "base/clock.h"

namespace radio {

callbacks_t::callbacks_t() : thread_([this] { run(); }) {}

callbacks_t::~callbacks_t() {
    stop();
}

void callbacks_t::result(const session_pointer_t& session, DWORD code, HRESULT request, std::optional<DWORD> data) {
    const auto call = [=](const session_t& to) {
        to.result(code, request, data ? &*data : nullptr, data ? sizeof *data : 0, to.parameter);
    };
    post({session, false, call, {}});
}

void callbacks_t::system_changed(const session_pointer_t& session, DWORD system_type) {
    post({session,
          false,
          [=](const session_t& to) {
              to.notify(RIL_NOTIFY_SYSTEMCHANGED, &system_type, sizeof system_type, to.parameter);
          },
          {}});
}

void callbacks_t::message(const session_pointer_t& session, std::function<void(const session_t&)> hand_over,
                          std::function<void(bool)> done) {
    post({session, true, std::move(hand_over), std::move(done)});
}

// Each datagram that is sent makes one: this wait takes half of the system calls that one on a condition does.
void callbacks_t::post(task_t task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    ++posted_;
    posted_.notify_one();
}

void callbacks_t::end(const session_pointer_t& session) {
    const std::lock_guard lock(mutex_);
    session->open = false;
}

void callbacks_t::drain(const session_pointer_t& session) {
    if (std::this_thread::get_id() == thread_.get_id()) {
        return;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return running_ == nullptr || running_->session != session; });
}

void callbacks_t::stop_messages() {
    std::unique_lock lock(mutex_);
    no_messages_ = true;
    changed_.wait(lock, [this] { return running_ == nullptr || !running_->is_message; });
}

void callbacks_t::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    ++posted_;
    posted_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

// What comes right after another waits for a moment, for what follows it: a fast modem need not wake this thread, nor
// this one the driver's, for each datagram.
void callbacks_t::run() {
    constexpr std::chrono::microseconds moment(200);
    bool has_run = false;
    while (true) {
        const uint32_t posted = posted_;
        if (run_one()) {
            has_run = true;
            continue;
        }
        if (const std::lock_guard lock(mutex_); stopping_ && tasks_.empty()) {
            return;
        }
        if (std::exchange(has_run, false)) {
            const base::timed_wait_t no_rest(base::tick64());
            std::this_thread::sleep_for(moment);
        } else {
            posted_.wait(posted);
        }
    }
}

// False when there is none.
bool callbacks_t::run_one() {
    std::unique_lock lock(mutex_);
    if (tasks_.empty()) {
        return false;
    }
    const task_t task = std::move(tasks_.front());
    tasks_.pop_front();
    const bool calls = task.session->open && !(task.is_message && no_messages_);
    running_ = &task;
    lock.unlock();
    if (calls) {
        task.call(*task.session);
    }
    if (task.done) {
        task.done(calls);
    }
    lock.lock();
    running_ = nullptr;
    changed_.notify_all();
    return true;
}

}  // namespace radio
