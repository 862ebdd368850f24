#include "network/event_loop.h"

#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace network {

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

int tty_watch_t::add(const std::string& tty) const {
    return inotify_add_watch(fd(), tty.c_str(), IN_CLOSE);
}

std::vector<int> tty_watch_t::closed() const {
    std::vector<int> ids;
    std::array<char, 4096> octets;
    ssize_t count = 0;
    while ((count = ::read(fd(), octets.data(), octets.size())) > 0) {
        for (size_t at = 0; at < static_cast<size_t>(count);) {
            inotify_event event{};
            std::memcpy(&event, octets.data() + at, sizeof event);
            at += sizeof event + event.len;
            if ((event.mask & IN_CLOSE) != 0) {
                ids.push_back(event.wd);
            }
        }
    }
    return ids;
}

}  // namespace network
