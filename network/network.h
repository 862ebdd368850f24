/// The emulated cellular network: a service centre and one modem a phone number, each on a pseudo-terminal that
/// DIR/<number> links to. The host at the other end of the tty cannot tell it from hardware.
///
/// One thread serves all modems. The functions here may be called from any thread; they return when the change is made.
/// Failures are returned with a text for people, never thrown.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/descriptor.h"
#include "network/event_loop.h"
#include "network/service_centre.h"
#include "network/sim.h"

namespace network {

class phone_t;

class network_t {
  public:
    /// Makes the directory when it is missing and takes it for this network alone. A phone is "NUMBER" or
    /// "NUMBER:NETWORK": digits with an optional "+" before them, and what it is on (technology_named), else GSM. None,
    /// with the reason in `error`, when the directory is taken or cannot be used, when a number or a network is
    /// malformed, when a number is given twice, or when something that is not a modem's link stands in a link's place.
    /// The links that a killed network left behind are replaced.
    static std::unique_ptr<network_t> start(const std::filesystem::path& directory,
                                            const std::vector<std::string>& phones, std::string* error);
    /// Ends the thread, hangs up every modem and removes the links.
    ~network_t();
    network_t(const network_t&) = delete;
    network_t& operator=(const network_t&) = delete;

    /// Adds a phone, which then gets what waits for it; or brings back one that hung up, as after a power cycle: on
    /// another tty, with its settings forgotten and its stored messages kept. As for start, a phone may name its
    /// network; one that is known keeps its own.
    bool attach(const std::string& phone, std::string* error);
    /// DIR/<number>
    std::filesystem::path link(std::string_view number) const;

    /// Makes one phone misbehave, or stop it: an order of fault_table.h, "lose-results=2". Returns an empty text, or
    /// what is wrong: no such phone, no such fault, no such value.
    [[nodiscard]] std::string set_fault(std::string_view number, std::string_view order);

    /// What has been entered at the phone's SIM since its PIN was last cleared; nothing for a number that is none.
    sim_t::entries_t pin_entries(std::string_view number);

    /// Writes what passes from now on to this file (trace.h). Returns an empty text, or what failed.
    [[nodiscard]] std::string trace(const std::filesystem::path& file);

    /// They count what the hosts have been told, and may be ahead of it.
    statistics_t statistics() const;
    /// Waits until the statistics satisfy `condition`; false when the time is over first.
    bool wait_until(const std::function<bool(const statistics_t&)>& condition, std::chrono::milliseconds limit) const;

  private:
    explicit network_t(std::filesystem::path directory);
    bool take_directory(std::string* error);
    bool plug_in(std::string_view plan, std::string* error);
    phone_t* find(std::string_view number) const;
    void serve();
    void wait();
    [[nodiscard]] uint64_t next_deadline() const;
    void forget_closed_hosts();
    void publish_statistics();

    const std::filesystem::path directory_;
    base::descriptor_t directory_lock_;

    // Of the network's thread, once it runs.
    service_centre_t service_centre_;
    std::map<std::string, std::unique_ptr<phone_t>, std::less<>> phones_;  // by digits
    tty_watch_t tty_watch_;

    task_queue_t tasks_;
    std::atomic<bool> ending_ = false;
    mutable std::mutex statistics_mutex_;
    mutable std::condition_variable statistics_changed_;
    statistics_t statistics_;  // guarded by statistics_mutex_: what the service centre's were after the last round
    std::thread thread_;
};

}  // namespace network
