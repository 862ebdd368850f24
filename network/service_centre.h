/// The service centre of the network: takes SMS-SUBMITs, keeps each until its destination has taken it, and hands it on
/// as an SMS-DELIVER (3GPP TS 23.040 3.1), to a phone on CDMA in that network's form (air_message.h). User data passes
/// octet for octet. Not thread-safe.
///
/// A destination is its digits: "+49...", and the same digits as a national or unknown number, are one phone.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "air/tpdu.h"
#include "network/air_message.h"
#include "network/arrivals.h"
#include "network/deadlines.h"
#include "network/faults.h"
#include "network/trace.h"

namespace network {

/// A number without its "+".
std::string digits_of(std::string_view number);

/// A phone within reach, as the service centre sees it.
class receiver_t {
  public:
    enum class taken_t {
        acknowledged,
        pending,  // service_centre_t::acknowledge follows
        not_now,  // no room or no coverage: offer it again
    };
    virtual ~receiver_t() = default;
    /// What the phone's network carries.
    virtual air_form_t form() const = 0;
    virtual taken_t deliver(const air_message_t& message) = 0;
};

/// Counts since the start, but `waiting`, which is now.
struct statistics_t {
    uint64_t submitted = 0;
    uint64_t delivered = 0;
    uint64_t waiting = 0;

    bool operator==(const statistics_t&) const = default;
};

class service_centre_t {
  public:
    /// The network's own number, as it stands in AT+CSCA and before each delivered message.
    static constexpr std::string_view own_number = "+999000001";

    /// Takes a message into store. Returns 0, or the RP-cause (3GPP TS 24.011 E-2) of the refusal.
    unsigned submit(const std::string& originator, const submission_t& submission);
    /// From now on until detach, `phone` is offered what waits for the number, as `faults` say.
    void attach(const std::string& number, receiver_t& phone, const faults_t& faults);
    void detach(const std::string& number);
    /// The outcome of a pending delivery; one that was not accepted waits on.
    void acknowledge(const std::string& number, bool accepted);
    /// What waits for the number is to be offered anew: its phone, or what `faults` say, may have changed.
    void touch(const std::string& number);
    /// Offers what waits to those for whom something has changed: a message came or is due, the phone was attached, has
    /// acknowledged or was touched. Returns their digits; the others cost nothing, however many they are.
    std::set<std::string> deliver_waiting();
    /// When, on base::tick64, deliver_waiting has something to do.
    std::optional<uint64_t> deadline() const;
    const statistics_t& statistics() const { return statistics_; }
    /// Messages that wait for the number.
    size_t waiting_for(std::string_view number) const;
    /// Has the phone of the number handed a TPDU as it stands, when its turn comes. False when too many wait.
    bool submit_as_it_stands(std::string_view number, air::octets_t tpdu);
    /// Cards that have come whole to the phones.
    arrivals_t& arrivals() { return arrivals_; }
    /// What passes to and from the phones; their modems write it.
    trace_t& trace() { return trace_; }

  private:
    // Bounds what a flood to numbers that nobody has can take up.
    static constexpr uint64_t max_waiting = 100'000;

    // How many of an originator's last submissions are remembered, to tell a repeated one: half of the references, so
    // that none is taken for an earlier one that had the same.
    static constexpr size_t max_remembered = 128;

    struct attached_t {
        receiver_t* phone = nullptr;
        const faults_t* faults = nullptr;
        bool pending = false;
        uint64_t next_at = 0;  // on base::tick64: no delivery before it
    };
    struct waiting_t {
        air::deliver_t deliver{};
        air::octets_t as_it_stands{};  // instead of it, when there are any
        uint16_t identifier = 0;
        uint64_t since = 0;     // base::tick64
        bool repeated = false;  // it has been delivered and comes again
    };
    struct queue_t {
        std::deque<waiting_t> messages;
        size_t released = 0;  // so many of the first are in the order in which they are delivered
    };
    struct remembered_t {
        std::string destination;
        uint16_t reference = 0;
        air::octets_t user_data;  // on CDMA

        bool operator==(const remembered_t&) const = default;
    };

    bool is_repetition(const std::string& originator, const remembered_t& submission);
    void deliver_waiting(const std::string& digits);
    void deliver_waiting(const std::string& digits, attached_t& attached, queue_t& queue);
    static uint64_t due(const attached_t& attached, const queue_t& queue);
    bool may_deliver(const std::string& digits, const attached_t& attached, queue_t& queue);
    void delivered_first(const std::string& digits, const attached_t& attached, queue_t& queue);
    static std::optional<air_message_t> message_of(const waiting_t& waiting, air_form_t form);
    void remove_first(queue_t& queue);

    std::map<std::string, attached_t> attached_;  // by digits
    std::map<std::string, queue_t> queues_;       // by digits
    std::set<std::string> touched_;               // by digits: those that have a queue
    deadlines_t<std::string> deadlines_;          // by digits: what was not delivered yet is due then
    std::map<std::string, std::deque<remembered_t>> remembered_;
    statistics_t statistics_;
    arrivals_t arrivals_;
    trace_t trace_;
};

}  // namespace network
