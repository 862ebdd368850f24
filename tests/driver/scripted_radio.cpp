#include "tests/driver/scripted_radio.h"

#include <future>
#include <thread>

namespace {

HRESULT next_of(std::deque<HRESULT>& script) {
    if (script.empty()) {
        return S_OK;
    }
    const HRESULT result = script.front();
    script.pop_front();
    return result;
}

}  // namespace

scripted_radio_t& scripted_radio_t::instance() {
    static auto* const radio = new scripted_radio_t;  // its thread runs until the process ends
    return *radio;
}

scripted_radio_t::scripted_radio_t() {
    std::thread([this] { work(); }).detach();
}

void scripted_radio_t::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return !tasks_.empty(); });
        const std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

void scripted_radio_t::post(std::function<void()> task) {
    tasks_.push_back(std::move(task));
    changed_.notify_all();
}

void scripted_radio_t::run(const std::function<void()>& task) {
    auto done = std::make_shared<std::promise<void>>();
    {
        const std::lock_guard lock(mutex_);
        post([task, done] {
            task();
            done->set_value();
        });
    }
    done->get_future().wait();
}

void scripted_radio_t::reset() {
    run([] {});  // what was posted before has been delivered
    const std::lock_guard lock(mutex_);
    script_ = {};
    attempts_ = {};
    submissions_.clear();
    questions_.clear();
}

void scripted_radio_t::follow(script_t script) {
    const std::lock_guard lock(mutex_);
    script_ = std::move(script);
}

attempts_t scripted_radio_t::attempts() const {
    const std::lock_guard lock(mutex_);
    return attempts_;
}

void scripted_radio_t::result_here(HRESULT request, DWORD code, std::string_view data) {
    std::unique_lock lock(mutex_);
    const RILRESULTCALLBACK callback = on_result_;
    lock.unlock();
    if (callback) {
        callback(code, request, data.empty() ? nullptr : data.data(), static_cast<DWORD>(data.size()), 0);
    }
}

void scripted_radio_t::notify_here(DWORD code, const void* data, DWORD size) {
    std::unique_lock lock(mutex_);
    const RILNOTIFYCALLBACK callback = on_notify_;
    lock.unlock();
    if (callback) {
        callback(code, data, size, 0);
    }
}

HRESULT scripted_radio_t::open(RILRESULTCALLBACK on_result, RILNOTIFYCALLBACK on_notify, HRIL* session) {
    const std::lock_guard lock(mutex_);
    ++attempts_.sessions;
    on_result_ = on_result;
    on_notify_ = on_notify;
    const HRESULT result = next_of(script_.sessions);
    if (result >= 0) {
        *session = reinterpret_cast<HRIL>(uintptr_t{0x5E55});
    }
    return result;
}

HRESULT scripted_radio_t::submit(const RILMESSAGE& message, DWORD options) {
    const std::lock_guard lock(mutex_);
    ++attempts_.submissions;
    const HRESULT result = next_of(script_.submissions);
    if (result < 0) {
        return result;
    }
    const HRESULT request = next_request_++;
    submissions_.push_back({message, options, request});
    changed_.notify_all();
    if (script_.confirm_everything) {
        post([this, request] { result_here(request, RIL_RESULT_OK, u32(1)); });
    }
    return request;
}

HRESULT scripted_radio_t::ask() {
    const std::lock_guard lock(mutex_);
    ++attempts_.questions;
    const HRESULT result = next_of(script_.questions);
    if (result < 0) {
        return result;
    }
    questions_.push_back(next_request_++);
    changed_.notify_all();
    return questions_.back();
}

HRESULT RIL_Initialize(DWORD index, RILRESULTCALLBACK result, RILNOTIFYCALLBACK notify, DWORD notification_classes,
                       DWORD parameter, HRIL* session) {
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(notification_classes, RIL_NCLASS_MESSAGE | RIL_NCLASS_NETWORK);
    EXPECT_EQ(parameter, 0u);
    return scripted_radio_t::instance().open(result, notify, session);
}

HRESULT RIL_Deinitialize(HRIL) {
    ADD_FAILURE() << "the driver leaves its session open";
    return S_OK;
}

HRESULT RIL_SendMsg(HRIL session, const RILMESSAGE* message, DWORD options) {
    EXPECT_EQ(session, reinterpret_cast<HRIL>(uintptr_t{0x5E55}));
    return scripted_radio_t::instance().submit(*message, options);
}

HRESULT RIL_GetCurrentSystemType(HRIL session) {
    EXPECT_EQ(session, reinterpret_cast<HRIL>(uintptr_t{0x5E55}));
    return scripted_radio_t::instance().ask();
}
