/// A radio in the driver's hands that does what a test says: it records what the driver submits and asks, lets the test
/// decide how each call returns, and delivers results and notifications. One for the process.
///
/// Threads: any may call. A delivery is a call of the driver's callback on the caller's thread, which is never the
/// driver's; a wait ends with a test failure after 60 s.
#pragma once

#include <gtest/gtest.h>
#include <ril.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tests/driver/octets.h"

struct submission_t {
    RILMESSAGE message;
    DWORD options;
    HRESULT request;
};

/// What the next calls return, in turn; S_OK stands for success, as does every call after the last one named.
struct script_t {
    std::deque<HRESULT> sessions{}, submissions{}, questions{};
    bool confirm_everything = false;  // each submission is confirmed at once, by a thread of the radio's own
    std::function<void()> within{};   // happens inside each call that the driver makes, on its thread
};

/// Calls of each kind, refused ones included.
struct attempts_t {
    size_t sessions = 0, submissions = 0, questions = 0;
};

class scripted_radio_t {
  public:
    static scripted_radio_t& instance();

    /// Forgets what was recorded and scripted. The callbacks of the last session stay, as they do on a phone.
    void reset();

    void follow(script_t script);
    attempts_t attempts() const;
    /// Submissions so far, without the refused ones.
    size_t accepted() const;
    /// The accepted submission or question of this number, from 1; waits for it.
    submission_t submission(size_t number) { return await(submissions_, number); }
    HRESULT question(size_t number) { return await(questions_, number); }

    void result(HRESULT request, DWORD code, std::string_view data = {});
    /// The result of the submission of this number.
    void confirm(size_t number) { result(submission(number).request, RIL_RESULT_OK, u32(1)); }
    void refuse(size_t number) { result(submission(number).request, RIL_RESULT_ERROR, u32(RIL_E_NETWORKTIMEOUT)); }
    void notify(DWORD code, const void* data, DWORD size);
    void deliver(const RILMESSAGE& message) { notify(RIL_NOTIFY_MESSAGE, &message, sizeof(message)); }
    void system_changed(DWORD type) { notify(RIL_NOTIFY_SYSTEMCHANGED, &type, sizeof(type)); }

    // What the driver calls.
    HRESULT open(RILRESULTCALLBACK on_result, RILNOTIFYCALLBACK on_notify, HRIL* session);
    HRESULT submit(const RILMESSAGE& message, DWORD options);
    HRESULT ask();

  private:
    scripted_radio_t();
    void happen_within() const;
    void confirm_everything();
    template <typename item_t>
    item_t await(const std::vector<item_t>& items, size_t number) {
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, std::chrono::seconds(60), [&] { return items.size() >= number; })) {
            return items[number - 1];
        }
        ADD_FAILURE() << "there is no #" << number;
        return {};
    }

    std::atomic<RILRESULTCALLBACK> on_result_ = nullptr;
    std::atomic<RILNOTIFYCALLBACK> on_notify_ = nullptr;
    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::deque<HRESULT> to_confirm_;
    script_t script_;
    attempts_t attempts_;
    std::vector<submission_t> submissions_;
    std::vector<HRESULT> questions_;
    HRESULT next_request_ = 0x100;
};
