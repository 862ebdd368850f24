#include "tests/driver/scripted_radio.h"

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
    std::thread([this] { confirm_everything(); }).detach();
}

void scripted_radio_t::confirm_everything() {
    for (std::unique_lock lock(mutex_);;) {
        changed_.wait(lock, [this] { return !to_confirm_.empty(); });
        const HRESULT request = to_confirm_.front();
        to_confirm_.pop_front();
        lock.unlock();
        result(request, RIL_RESULT_OK, u32(1));
        lock.lock();
    }
}

void scripted_radio_t::reset() {
    const std::lock_guard lock(mutex_);
    to_confirm_.clear();
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

size_t scripted_radio_t::accepted() const {
    const std::lock_guard lock(mutex_);
    return submissions_.size();
}

void scripted_radio_t::result(HRESULT request, DWORD code, std::string_view data) {
    if (const RILRESULTCALLBACK callback = on_result_) {
        callback(code, request, data.empty() ? nullptr : data.data(), static_cast<DWORD>(data.size()), 0);
    }
}

void scripted_radio_t::notify(DWORD code, const void* data, DWORD size) {
    if (const RILNOTIFYCALLBACK callback = on_notify_) {
        callback(code, data, size, 0);
    }
}

void scripted_radio_t::happen_within() const {
    std::unique_lock lock(mutex_);
    const auto within = script_.within;
    lock.unlock();
    if (within) {
        within();
    }
}

HRESULT scripted_radio_t::open(RILRESULTCALLBACK on_result, RILNOTIFYCALLBACK on_notify, HRIL* session) {
    on_result_ = on_result;
    on_notify_ = on_notify;
    happen_within();
    const std::lock_guard lock(mutex_);
    ++attempts_.sessions;
    const HRESULT result = next_of(script_.sessions);
    if (result >= 0) {
        *session = reinterpret_cast<HRIL>(uintptr_t{0x5E55});
    }
    return result;
}

HRESULT scripted_radio_t::submit(const RILMESSAGE& message, DWORD options) {
    happen_within();
    const std::lock_guard lock(mutex_);
    ++attempts_.submissions;
    const HRESULT result = next_of(script_.submissions);
    if (result < 0) {
        return result;
    }
    const HRESULT request = next_request_++;
    submissions_.push_back({message, options, request});
    if (script_.confirm_everything) {
        to_confirm_.push_back(request);
    }
    changed_.notify_all();
    return request;
}

HRESULT scripted_radio_t::ask() {
    happen_within();
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
