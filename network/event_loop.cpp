#include "network/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <span>

namespace network {

wait_set_t::wait_set_t() : set_(epoll_create1(EPOLL_CLOEXEC)) {}

std::vector<phone_t*> wait_set_t::wait(int milliseconds) const {
    std::array<epoll_event, 256> events;
    const int count = epoll_wait(set_.get(), events.data(), static_cast<int>(events.size()), milliseconds);
    std::vector<phone_t*> phones;
    for (const epoll_event& event : std::span(events).first(count > 0 ? static_cast<size_t>(count) : 0)) {
        if (event.data.ptr != nullptr) {
            phones.push_back(static_cast<phone_t*>(event.data.ptr));
        }
    }
    return phones;
}

waited_t::waited_t(const wait_set_t& set, int fd, phone_t* phone) : set_(set.set_.get()), fd_(fd), phone_(phone) {}

/// Not left to the descriptor's end: a process that is being started may have a copy of it for a moment.
waited_t::~waited_t() {
    if (entered_) {
        epoll_ctl(set_, EPOLL_CTL_DEL, fd_, nullptr);
    }
}

bool waited_t::want(uint32_t events) {
    if (entered_ && events == events_) {
        return true;
    }
    epoll_event event{};
    event.events = events;
    event.data.ptr = phone_;
    entered_ = epoll_ctl(set_, entered_ ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd_, &event) == 0 || entered_;
    events_ = events;
    return entered_;
}

task_queue_t::task_queue_t() : event_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void task_queue_t::wake() const {
    eventfd_write(fd(), 1);
}

void task_queue_t::run(const std::function<void()>& task) {
    waiting_task_t waiting{&task};
    std::unique_lock lock(mutex_);
    waiting_.push_back(&waiting);
    wake();
    done_.wait(lock, [&] { return waiting.done; });
}

void task_queue_t::do_all() {
    eventfd_t count = 0;
    eventfd_read(fd(), &count);
    const std::lock_guard lock(mutex_);
    for (waiting_task_t* waiting : waiting_) {
        (*waiting->task)();
        waiting->done = true;
    }
    waiting_.clear();
    done_.notify_all();
}

tty_watch_t::tty_watch_t() : watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

int tty_watch_t::add(const std::string& tty, phone_t* phone) {
    const int id = inotify_add_watch(fd(), tty.c_str(), IN_CLOSE);
    if (id >= 0) {
        phones_[id] = phone;
    }
    return id;
}

void tty_watch_t::remove(int id) {
    if (phones_.erase(id) > 0) {
        inotify_rm_watch(fd(), id);
    }
}

std::vector<phone_t*> tty_watch_t::closed() const {
    std::vector<phone_t*> phones;
    std::array<char, 4096> octets;
    ssize_t count = 0;
    while ((count = ::read(fd(), octets.data(), octets.size())) > 0) {
        for (size_t at = 0; at < static_cast<size_t>(count);) {
            inotify_event event{};
            std::memcpy(&event, octets.data() + at, sizeof event);
            at += sizeof event + event.len;
            const auto phone = phones_.find(event.wd);
            if ((event.mask & IN_CLOSE) != 0 && phone != phones_.end()) {
                phones.push_back(phone->second);
            }
        }
    }
    return phones;
}

}  // namespace network
