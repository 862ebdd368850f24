#include "network/network.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>

#include "base/clock.h"
#include "base/text.h"
#include "network/fault_table.h"
#include "network/phone.h"

namespace network {

namespace fs = std::filesystem;

namespace {

bool is_number(std::string_view number) {
    return air::address_from_number(number).has_value();
}

}  // namespace

network_t::network_t(fs::path directory) : directory_(std::move(directory)) {}

std::unique_ptr<network_t> network_t::start(const fs::path& directory, const std::vector<std::string>& phones,
                                            std::string* error) {
    std::unique_ptr<network_t> network(new network_t(directory));
    if (!network->take_directory(error)) {
        return nullptr;
    }
    for (const std::string& phone : phones) {
        if (!network->plug_in(phone, error)) {
            return nullptr;
        }
    }
    network->thread_ = std::thread([self = network.get()] { self->serve(); });
    return network;
}

network_t::~network_t() {
    ending_ = true;
    tasks_.wake();
    if (thread_.joinable()) {
        thread_.join();
    }
    phones_.clear();
}

/// A lock on the directory itself: a killed network leaves nothing to clean up.
bool network_t::take_directory(std::string* error) {
    std::error_code failure;
    fs::create_directories(directory_, failure);
    directory_lock_ = base::descriptor_t(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_lock_) {
        *error = fmt::format("cannot use the directory {}: {}", directory_.string(), base::errno_text(errno));
        return false;
    }
    if (flock(directory_lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        *error = errno == EWOULDBLOCK
                     ? fmt::format("another network runs in {}", directory_.string())
                     : fmt::format("cannot lock the directory {}: {}", directory_.string(), base::errno_text(errno));
        return false;
    }
    return true;
}

bool network_t::plug_in(std::string_view plan, std::string* error) {
    const size_t colon = plan.find(':');
    const std::string number(plan.substr(0, colon));
    const auto technology = technology_named(colon == std::string_view::npos ? "gsm" : plan.substr(colon + 1));
    if (!technology) {
        *error = fmt::format("\"{}\" names no network after the number: gsm, edge, umts, hspa, lte, nr or cdma", plan);
        return false;
    }
    if (!is_number(number)) {
        *error = fmt::format("\"{}\" is no phone number: up to {} digits are wanted, with an optional + before them",
                             number, air::max_address_digits);
        return false;
    }
    phone_t* known = find(number);
    if (known != nullptr && (known->plugged_in() || known->number() != number)) {
        *error = fmt::format("the network has a phone {} already", known->number());
        return false;
    }
    if (known != nullptr) {
        return known->plug_in(error);
    }
    auto phone = std::make_unique<phone_t>(number, *technology, service_centre_, link(number), tty_watch_);
    if (!phone->plug_in(error)) {
        return false;
    }
    phones_.emplace(digits_of(number), std::move(phone));
    return true;
}

phone_t* network_t::find(std::string_view number) const {
    const auto phone = phones_.find(digits_of(number));
    return phone == phones_.end() ? nullptr : phone->second.get();
}

bool network_t::attach(const std::string& phone, std::string* error) {
    bool done = false;
    tasks_.run([&] { done = plug_in(phone, error); });
    return done;
}

fs::path network_t::link(std::string_view number) const {
    return directory_ / number;
}

std::string network_t::set_fault(std::string_view number, std::string_view order) {
    std::string error;
    tasks_.run([&] {
        phone_t* phone = find(number);
        error =
            phone == nullptr ? fmt::format("the network has no phone {}", number) : network::set_fault(phone, order);
    });
    return error;
}

sim_t::entries_t network_t::pin_entries(std::string_view number) {
    sim_t::entries_t entries;
    tasks_.run([&] {
        if (phone_t* phone = find(number)) {
            entries = phone->modem().sim().entries();
        }
    });
    return entries;
}

std::string network_t::trace(const fs::path& file) {
    std::string error;
    tasks_.run([&] { error = service_centre_.trace().open(file); });
    return error;
}

/// The order matters three times. That a host has closed its tty is looked up after reading and before executing: what
/// was read may be of its successor already, whose answers must not be dropped with its own. And messages are delivered
/// after the commands, so that a phone that sends to itself is told of the arrival after the result of its submission.
/// And what a host reads is in the statistics already.
void network_t::serve() {
    const base::clock_watch_t clock_watch([this] { tasks_.wake(); });
    while (!ending_) {
        wait();
        tasks_.do_all();
        const auto each_plugged_in = [this](void (phone_t::*step)()) {
            for (const auto& [digits, phone] : phones_) {
                if (phone->plugged_in()) {
                    (phone.get()->*step)();
                }
            }
        };
        each_plugged_in(&phone_t::read);
        forget_closed_hosts();
        for (const auto& [digits, phone] : phones_) {
            phone->pass_deadline();
        }
        each_plugged_in(&phone_t::execute);
        service_centre_.deliver_waiting();
        publish_statistics();
        each_plugged_in(&phone_t::write);
    }
}

void network_t::wait() {
    std::vector<pollfd> waits = {{tasks_.fd(), POLLIN, 0}, {tty_watch_.fd(), POLLIN, 0}};
    for (const auto& [digits, phone] : phones_) {
        if (phone->plugged_in()) {
            waits.push_back({phone->fd(), phone->wanted_events(), 0});
        }
    }
    const uint64_t until = next_deadline();
    constexpr uint64_t longest = 60'000;
    const uint64_t now = base::tick64();
    const base::timed_wait_t timed(until);
    poll(waits.data(), waits.size(), static_cast<int>(std::min(until - std::min(until, now), longest)));
}

/// When, on base::tick64, there is something to do even if nobody says anything.
uint64_t network_t::next_deadline() const {
    uint64_t limit = service_centre_.deadline().value_or(UINT64_MAX);
    for (const auto& [digits, phone] : phones_) {
        if (phone->plugged_in() && phone->has_input()) {
            return 0;
        }
        limit = std::min(limit, phone->deadline().value_or(UINT64_MAX));
    }
    return limit;
}

void network_t::forget_closed_hosts() {
    for (const int id : tty_watch_.closed()) {
        for (const auto& [digits, phone] : phones_) {
            if (phone->plugged_in() && phone->watch_id() == id) {
                phone->host_closed();
            }
        }
    }
}

void network_t::publish_statistics() {
    const std::lock_guard lock(statistics_mutex_);
    if (statistics_ != service_centre_.statistics()) {
        statistics_ = service_centre_.statistics();
        statistics_changed_.notify_all();
    }
}

statistics_t network_t::statistics() const {
    const std::lock_guard lock(statistics_mutex_);
    return statistics_;
}

bool network_t::wait_until(const std::function<bool(const statistics_t&)>& condition,
                           std::chrono::milliseconds limit) const {
    std::unique_lock lock(statistics_mutex_);
    return statistics_changed_.wait_for(lock, limit, [&] { return condition(statistics_); });
}

}  // namespace network
