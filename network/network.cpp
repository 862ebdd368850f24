#include "network/network.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>

#include "air/result_codes.h"
#include "base/clock.h"
#include "base/text.h"
#include "network/fault_table.h"
#include "network/phone.h"
#include "network/system_limits.h"

namespace network {

namespace fs = std::filesystem;

namespace {

bool is_number(std::string_view number) {
    return air::address_from_number(number).has_value();
}

}  // namespace

bool by_number_t::operator()(const phone_t* a, const phone_t* b) const {
    return a->number() < b->number();
}

network_t::network_t(fs::path directory) : directory_(std::move(directory)) {}

std::unique_ptr<network_t> network_t::start(const fs::path& directory, const std::vector<std::string>& phones,
                                            std::string* error) {
    raise_descriptor_limit(phones.size());
    std::unique_ptr<network_t> network(new network_t(directory));
    if (!network->take_directory(error)) {
        return nullptr;
    }
    if (!network->tasks_waited_.want(EPOLLIN)) {
        *error = "cannot wait for the modems: " + base::errno_text(errno);
        return nullptr;
    }
    network->tty_watch_waited_.want(EPOLLIN);
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
    auto phone = std::make_unique<phone_t>(number, *technology, service_centre_, link(number), waits_, tty_watch_);
    if (!phone->plug_in(error)) {
        return false;
    }
    active_.insert(phones_.emplace(digits_of(number), std::move(phone)).first->second.get());
    return true;
}

/// Whatever it is wanted for may have changed it: it takes part in the round.
phone_t* network_t::find(std::string_view number) {
    const auto phone = phones_.find(digits_of(number));
    return phone == phones_.end() ? nullptr : *active_.insert(phone->second.get()).first;
}

bool network_t::attach(const std::string& phone, std::string* error) {
    raise_descriptor_limit(1);
    bool done = false;
    tasks_.run([&] { done = plug_in(phone, error); });
    return done;
}

fs::path network_t::link(std::string_view number) const {
    return directory_ / number;
}

std::string network_t::listen(std::string_view number, const tcp_address_t& address) {
    std::string error;
    tasks_.run([&] {
        if (phone_t* phone = find(number)) {
            phone->listen(address, &error);
        } else {
            error = fmt::format("the network has no phone {}", number);
        }
    });
    return error;
}

std::string network_t::listens_at(std::string_view number) {
    std::optional<tcp_address_t> address;
    tasks_.run([&] {
        if (const phone_t* phone = find(number)) {
            address = phone->listens_at();
        }
    });
    return address ? to_text(*address) : std::string();
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

std::vector<std::string> network_t::faults_in_force(std::string_view number) {
    std::vector<std::string> orders;
    tasks_.run([&] {
        if (const phone_t* phone = find(number)) {
            orders = network::faults_in_force(*phone);
        }
    });
    return orders;
}

std::vector<phone_state_t> network_t::phones(std::string_view after, size_t count) {
    std::vector<phone_state_t> states;
    tasks_.run([&] {
        auto phone = after.empty() ? phones_.begin() : phones_.upper_bound(digits_of(after));
        for (; phone != phones_.end() && states.size() < count; ++phone) {
            states.push_back(state_of(*phone->second));
        }
    });
    return states;
}

std::optional<phone_state_t> network_t::phone(std::string_view number) {
    std::optional<phone_state_t> state;
    tasks_.run([&] {
        if (const phone_t* phone = find(number)) {
            state = state_of(*phone);
        }
    });
    return state;
}

std::string network_t::submit(const std::string& from, const composed_t& messages) {
    std::string error;
    tasks_.run([&] {
        for (size_t i = 0; i < messages.size() && error.empty(); ++i) {
            const auto submission = submission_of({air_form_t::gsm_tpdu, messages[i]});
            const unsigned cause = submission ? service_centre_.submit(from, *submission) : cause_invalid_message;
            if (cause != 0) {
                error = fmt::format("the network refuses datagram {} of {}: {} ({})", i + 1, messages.size(),
                                    air::words_of(air::cms_errors(), cause), cause);
            }
        }
    });
    return error;
}

std::string network_t::deliver(std::string_view number, air::octets_t tpdu) {
    std::string error;
    tasks_.run([&] {
        if (find(number) == nullptr) {
            error = fmt::format("the network has no phone {}", number);
        } else if (!service_centre_.submit_as_it_stands(number, std::move(tpdu))) {
            error = "the network is congested: too many messages wait";
        }
    });
    return error;
}

bool network_t::take_arrival(std::string_view number, air::octets_view_t card) {
    bool found = false;
    tasks_.run([&] { found = service_centre_.arrivals().take(digits_of(number), card); });
    return found;
}

std::vector<arrivals_t::told_t> network_t::arrivals_at(std::string_view number) {
    std::vector<arrivals_t::told_t> told;
    tasks_.run([&] { told = service_centre_.arrivals().at(digits_of(number)); });
    return told;
}

void network_t::follow(fault_source_t source, told_t told) {
    tasks_.run([&] {
        schedule_.follow(std::move(source), [this, told = std::move(told)](const planned_order_t& order) {
            told(order, carry_out(order));
        });
    });
}

/// Goes on after what cannot be done, and returns the last of that.
std::string network_t::carry_out(const planned_order_t& order) {
    std::string error;
    for (const auto& [digits, phone] : phones_) {
        if (order.number != all_phones && digits_of(order.number) != digits) {
            continue;
        }
        for (const std::string& fault : order.faults) {
            const std::string failure = network::set_fault(find(digits), fault);
            error = failure.empty() ? error : fmt::format("{}: {}", phone->number(), failure);
        }
    }
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

std::string network_t::log_dialogues(const fs::path& directory, const std::function<void(const std::string&)>& told) {
    std::error_code failure;
    fs::create_directories(directory, failure);
    std::string error =
        failure ? fmt::format("cannot make the folder {}: {}", directory.string(), failure.message()) : "";
    tasks_.run([&] {
        for (auto phone = phones_.begin(); phone != phones_.end() && error.empty(); ++phone) {
            error = phone->second->log(directory / (phone->second->number() + ".log"), told);
        }
    });
    return error;
}

std::string network_t::trace(const fs::path& file, trace_t::failed_t failed) {
    std::string error;
    tasks_.run([&] { error = service_centre_.trace().open(file, std::move(failed)); });
    return error;
}

/// A round is of the phones alone that may have something to do, and its order matters three times. That a host has
/// closed its tty is looked up after reading and before executing: what was read may be of its successor already, whose
/// answers must not be dropped with its own. And messages are delivered after the commands, so that a phone that sends
/// to itself is told of the arrival after the result of its submission. And what a host reads is in the statistics
/// already.
void network_t::serve() {
    const base::clock_watch_t clock_watch([this] { tasks_.wake(); });
    while (!ending_) {
        wait();
        tasks_.do_all();
        schedule_.pass_deadline();
        each_plugged_in(&phone_t::read);
        forget_closed_hosts();
        pass_deadlines();
        each_plugged_in(&phone_t::execute);
        deliver_waiting();
        publish_statistics();
        each_plugged_in(&phone_t::write);
        settle();
    }
}

void network_t::wait() {
    const uint64_t until = std::min(next_deadline(), schedule_.deadline().value_or(UINT64_MAX));
    constexpr uint64_t longest = 60'000;
    const uint64_t now = base::tick64();
    const base::timed_wait_t timed(until);
    const std::vector<phone_t*> ready = waits_.wait(static_cast<int>(std::min(until - std::min(until, now), longest)));
    active_.insert(ready.begin(), ready.end());
}

/// When, on base::tick64, there is something to do even if nobody says anything.
uint64_t network_t::next_deadline() const {
    constexpr uint64_t never = UINT64_MAX;
    return active_.empty() ? std::min(service_centre_.deadline().value_or(never), deadlines_.first().value_or(never))
                           : 0;
}

void network_t::each_plugged_in(void (phone_t::*step)()) {
    for (phone_t* phone : active_) {
        if (phone->plugged_in()) {
            (phone->*step)();
        }
    }
}

/// What the host wrote before it closed the tty may have been under way when the phones were read.
void network_t::forget_closed_hosts() {
    for (phone_t* phone : tty_watch_.closed()) {
        phone->read();
        phone->host_closed();
        active_.insert(phone);
    }
}

void network_t::pass_deadlines() {
    const std::vector<phone_t*> due = deadlines_.take_due(base::tick64());
    active_.insert(due.begin(), due.end());
    for (phone_t* phone : active_) {
        phone->pass_deadline();
    }
}

void network_t::deliver_waiting() {
    for (const phone_t* phone : active_) {
        service_centre_.touch(phone->number());
    }
    for (const std::string& number : service_centre_.deliver_waiting()) {
        find(number);
    }
}

/// Those that have more to do at once stay for the next round.
void network_t::settle() {
    std::erase_if(active_, [this](phone_t* phone) {
        phone->wait();
        deadlines_.set(phone, phone->deadline());
        return !phone->has_input();
    });
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
