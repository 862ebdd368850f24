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
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/descriptor.h"
#include "network/arrivals.h"
#include "network/composition.h"
#include "network/deadlines.h"
#include "network/event_loop.h"
#include "network/fault_schedule.h"
#include "network/phone_state.h"
#include "network/service_centre.h"
#include "network/sim.h"
#include "network/tcp_port.h"

namespace network {

class phone_t;

/// An order that is the same each time.
struct by_number_t {
    bool operator()(const phone_t* a, const phone_t* b) const;
};

class network_t {
  public:
    /// Makes the directory when it is missing and takes it for this network alone. A phone is "NUMBER" or
    /// "NUMBER:NETWORK": digits with an optional "+" before them, and what it is on (technology_named), else GSM. None,
    /// with the reason in `error`, when the directory is taken or cannot be used, when a number or a network is
    /// malformed, when a number is given twice, or when something that is not a modem's link stands in a link's place.
    /// The links that a killed network left behind are replaced. A phone takes two descriptors; this process's limit of
    /// them is raised when that is needed, as far as it may be.
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

    /// From now on the phone's modem is reached over TCP as well (phone.h). Returns an empty text, or what is wrong: no
    /// such phone, no such address, the port is taken, the phone has one already.
    [[nodiscard]] std::string listen(std::string_view number, const tcp_address_t& address);
    /// Where the phone listens, as ADDRESS:PORT; empty when it does not at the moment, or there is no such phone.
    std::string listens_at(std::string_view number);

    /// Makes one phone misbehave, or stop it: an order of fault_table.h, "lose-results=2". Returns an empty text, or
    /// what is wrong: no such phone, no such fault, no such value.
    [[nodiscard]] std::string set_fault(std::string_view number, std::string_view order);

    /// The phones in the order of their digits: at most `count` of those behind this number, or of all.
    std::vector<phone_state_t> phones(std::string_view after, size_t count);
    std::optional<phone_state_t> phone(std::string_view number);

    /// Submits messages for a number, of a phone of the network or of none, without a modem. Returns an empty text, or
    /// which of them was refused, and why; those before it are on their way.
    [[nodiscard]] std::string submit(const std::string& from, const composed_t& messages);
    /// Has the phone handed a TPDU as it stands, whatever it is, when its turn comes. Returns an empty text, or why it
    /// cannot be.
    [[nodiscard]] std::string deliver(std::string_view number, air::octets_t tpdu);

    /// Whether a card of these octets has arrived at the number (arrivals.h), once for each arrival.
    bool take_arrival(std::string_view number, air::octets_view_t card);
    /// What has arrived there of other cards.
    std::vector<arrivals_t::told_t> arrivals_at(std::string_view number);
    /// The orders that would make the phone's faults what they are now (fault_table.h); none for a number that is none.
    std::vector<std::string> faults_in_force(std::string_view number);

    /// Carries out the source's orders when their time has come, counted from now; as many sources as one likes. Each
    /// order is told once it has been carried out, with an empty text or what went wrong, on the network's thread.
    using told_t = std::function<void(const planned_order_t& order, const std::string& error)>;
    void follow(fault_source_t source, told_t told);

    /// What has been entered at the phone's SIM since its PIN was last cleared; nothing for a number that is none.
    sim_t::entries_t pin_entries(std::string_view number);

    /// Writes what passes from now on to this file (trace.h). Returns an empty text, or what failed; what fails later,
    /// and ends the trace, `failed` is told once, on the network's thread.
    [[nodiscard]] std::string trace(const std::filesystem::path& file, trace_t::failed_t failed);

    /// Records from now on what the modem of each phone that there is and its hosts say, in DIRECTORY/NUMBER.log
    /// (at_log.h); makes the directory when it is missing. Returns an empty text, or what failed first; what fails
    /// later is told, once a file, on the network's thread.
    [[nodiscard]] std::string log_dialogues(const std::filesystem::path& directory,
                                            const std::function<void(const std::string&)>& told);

    /// They count what the hosts have been told, and may be ahead of it.
    statistics_t statistics() const;
    /// Waits until the statistics satisfy `condition`; false when the time is over first.
    bool wait_until(const std::function<bool(const statistics_t&)>& condition, std::chrono::milliseconds limit) const;

  private:
    explicit network_t(std::filesystem::path directory);
    bool take_directory(std::string* error);
    bool plug_in(std::string_view plan, std::string* error);
    phone_t* find(std::string_view number);
    std::string carry_out(const planned_order_t& order);
    void serve();
    void wait();
    [[nodiscard]] uint64_t next_deadline() const;
    void each_plugged_in(void (phone_t::*step)());
    void forget_closed_hosts();
    void pass_deadlines();
    void deliver_waiting();
    void publish_statistics();
    void settle();

    const std::filesystem::path directory_;
    base::descriptor_t directory_lock_;

    task_queue_t tasks_;

    // Of the network's thread, once it runs.
    service_centre_t service_centre_;
    wait_set_t waits_;
    tty_watch_t tty_watch_;
    waited_t tasks_waited_{waits_, tasks_.fd(), nullptr};
    waited_t tty_watch_waited_{waits_, tty_watch_.fd(), nullptr};
    std::map<std::string, std::unique_ptr<phone_t>, std::less<>> phones_;  // by digits
    std::set<phone_t*, by_number_t> active_;  // that have, or may have, something to do in this round
    deadlines_t<phone_t*, by_number_t> deadlines_;
    fault_schedule_t schedule_;

    std::atomic<bool> ending_ = false;
    mutable std::mutex statistics_mutex_;
    mutable std::condition_variable statistics_changed_;
    statistics_t statistics_;  // guarded by statistics_mutex_: what the service centre's were after the last round
    std::thread thread_;
};

}  // namespace network
