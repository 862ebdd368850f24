// What happens, without waiting: a socket and a timer within an epoll descriptor, which is what a program waits for.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>

#include "base/octets.h"
#include "client/connection.h"
#include "client/library/event.h"
#include "client/library/handle.h"
#include "client/replies.h"
#include "device/device_socket.h"
#include "device/service_requests.h"

namespace {

using client::answer_t;
using client::done_t;
using client::failure_t;
using std::chrono::milliseconds;

constexpr milliseconds between_tries{1000};
constexpr milliseconds after_no_event{100};  // a service that is ending answers at once
constexpr milliseconds overdue = milliseconds(device::longest_wait) + client::answer_limit;

/// Runs out once; readable from then on until it is set again.
class pause_timer_t {
  public:
    int descriptor() const { return descriptor_.get(); }
    explicit operator bool() const { return static_cast<bool>(descriptor_); }

    void set(milliseconds time) const {
        // All of it 0 would stop the timer.
        const itimerspec spec{.it_interval = {},
                              .it_value = {.tv_sec = time.count() / 1000,
                                           .tv_nsec = static_cast<long>(time.count() % 1000) * 1'000'000 + 1}};
        timerfd_settime(descriptor_.get(), 0, &spec, nullptr);
    }
    /// It stays so until it is set again.
    bool has_run_out() const {
        itimerspec left{};
        timerfd_gettime(descriptor_.get(), &left);
        return left.it_value.tv_sec == 0 && left.it_value.tv_nsec == 0;
    }

  private:
    base::descriptor_t descriptor_{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
};

bool watch(int epoll, int descriptor) {
    epoll_event event{.events = EPOLLIN, .data = {}};
    return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

failure_t lost(const char* why) {
    return {.code = 0, .text = why};
}

}  // namespace

/// At any time one of these: events wait to be taken, and the timer has run out; the service was asked, and the timer
/// runs until its answer is overdue; it was not, and is asked when the timer runs out.
struct zpd_events {
  public:
    zpd_events(const char* device, uint64_t after, uint64_t since)
        : device_(device != nullptr ? std::string(device) : std::string(device::default_device)),
          since_(since),
          after_(after) {
        timer_.set(milliseconds(0));
    }
    bool is_whole() const { return epoll_ && timer_ && watch(epoll_.get(), timer_.descriptor()); }

    int descriptor() const { return epoll_.get(); }
    const char* error() const { return error_; }

    int next(zpd_event_t** event) {
        if (getpid() != process_) {
            error_ = "another process made it; make another one after a fork";
            return ZPD_BAD_ARGUMENT;
        }
        if (events_.empty()) {
            lose_unless(go_on());
        }
        if (!events_.empty()) {
            *event = std::make_unique<zpd_event>(std::move(events_.front())).release();
            take_first();
        }
        return *event != nullptr ? ZPD_OK : result_;
    }

    /// Begins anew, after a pause.
    void lose(int result, const char* why) {
        if (socket_) {
            // A child of a fork may have the socket still, which closing alone then leaves in the epoll descriptor.
            epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, socket_.get(), nullptr);
            socket_.close();
        }
        asked_ = false;
        timer_.set(between_tries);
        result_ = result;
        error_ = why;
    }

  private:
    void lose_unless(const answer_t<done_t>& done) {
        if (!done) {
            words_ = done.failure().text;
            lose(library::result_of(done.failure()), words_.c_str());
        }
    }

    answer_t<done_t> go_on() {
        if (socket_) {
            const auto packet = receive();
            if (!packet) {
                return packet.failure();
            }
            if (!packet->empty()) {
                return read(*packet);
            }
        }
        if (!timer_.has_run_out()) {
            return done_t{};
        }
        return asked_ ? answer_t<done_t>(lost("the service does not answer")) : ask();
    }

    answer_t<done_t> ask() {
        if (!socket_) {
            auto connection = client::connect(device_, device::system_folder, false);
            if (!connection) {
                return connection.failure();
            }
            socket_ = std::move(connection->socket);
            is_new_ = true;
            if (!watch(epoll_.get(), socket_.get())) {
                return lost("the connection cannot be waited for");
            }
        }
        // The first answer tells at once whether this client is served.
        const auto input = base::writer_t().u64(after_).u64(since_).u32(is_new_ ? 0 : device::longest_wait);
        const auto packet = encode(device::request_t{device::event_list, device::max_output, input.octets()});
        // A service that refuses a client says why before it closes, whether our packet got there or not.
        ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        asked_ = true;
        timer_.set(overdue);
        return done_t{};
    }

    /// Empty when none is there.
    answer_t<base::octets_t> receive() const {
        base::octets_t packet(device::reply_header + device::max_output);
        ssize_t length = recv(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT);
        // The kernel tells of the close first, and gives the packet that came before it next.
        if (length < 0 && errno == ECONNRESET) {
            length = recv(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT);
        }
        if (length == 0 || (length < 0 && errno != EAGAIN)) {
            return lost("the service ended");
        }
        packet.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
        return packet;
    }

    answer_t<done_t> read(const base::octets_t& packet) {
        auto reply = device::decode_reply(packet);
        if (!reply) {
            return lost("what answers is no ZPD service");
        }
        const auto output = client::output_of(device::event_list, std::move(*reply));
        if (!output) {
            return output.failure();
        }
        const auto list = library::read_object(std::string(output->begin(), output->end()));
        if (!list) {
            return list.failure();
        }
        for (const library::json_t& one : library::list_at(*list, "events")) {
            zpd_event event = library::event_of(one);
            const uint64_t last = events_.empty() ? after_ : events_.back().id;
            if (event.id <= last) {
                return lost("the service's events are not in their order");
            }
            events_.push_back(std::move(event));
        }
        asked_ = false;
        is_new_ = false;
        result_ = ZPD_OK;
        error_ = "";
        timer_.set(events_.empty() ? after_no_event : milliseconds(0));
        return done_t{};
    }

    /// The next ones are asked for at once, so that the descriptor tells when they are there.
    void take_first() {
        after_ = events_.front().id;
        events_.pop_front();
        if (events_.empty()) {
            lose_unless(ask());
        }
    }

    const std::string device_;
    const uint64_t since_;
    const pid_t process_ = getpid();
    const pause_timer_t timer_;
    const base::descriptor_t epoll_{epoll_create1(EPOLL_CLOEXEC)};
    base::descriptor_t socket_;
    uint64_t after_;  // the id of the last one that was taken
    std::deque<zpd_event> events_;
    bool asked_ = false;
    bool is_new_ = false;  // the connection, which has not answered yet
    int result_ = ZPD_OK;
    std::string words_;
    const char* error_ = "";
};

zpd_events_t* zpd_events_new(const char* device, uint64_t after, uint64_t since) try {
    auto events = std::make_unique<zpd_events>(device, after, since);
    return events->is_whole() ? events.release() : nullptr;
} catch (const std::exception&) {
    return nullptr;
}

void zpd_events_free(zpd_events_t* events) {
    delete events;
}

int zpd_events_descriptor(const zpd_events_t* events) {
    return events != nullptr ? events->descriptor() : -1;
}

int zpd_events_next(zpd_events_t* events, zpd_event_t** event) {
    if (event != nullptr) {
        *event = nullptr;
    }
    if (events == nullptr || event == nullptr) {
        return ZPD_BAD_ARGUMENT;
    }
    try {
        return events->next(event);
    } catch (const std::exception&) {
        events->lose(ZPD_NO_MEMORY, library::no_memory);
        return *event != nullptr ? ZPD_OK : ZPD_NO_MEMORY;
    }
}

const char* zpd_events_error(const zpd_events_t* events) {
    return events != nullptr ? events->error() : "";
}
