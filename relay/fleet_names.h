/// What the streams, subjects, headers and buckets of a group of modems are called: the form in which relays, commands
/// and other programs meet on a server. docs/fleet.md tells of them for people.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "relay/nats.h"

namespace fleet {

inline constexpr std::string_view usual_group = "cards";

/// A group's name: letters, digits, "-" and "_", 32 at most.
bool is_group(std::string_view name);

/// nats://[user:password@]host[:port][,…][/group], or tls://…
bool is_url(std::string_view device);
struct address_t {
    nats::server_t server;  // its URL, without the group
    std::string group;
};
/// None, and why, for one that is none.
client::answer_t<address_t> read_url(std::string_view url);

// Headers of a card in the queue, whose octets are the message.
inline constexpr const char* header_to = "Zpd-To";                          // a phone number
inline constexpr const char* header_file = "Zpd-File";                      // the name of its file, for people
inline constexpr const char* header_utf8 = "Zpd-Utf8";                      // 1 (or nothing) or 0
inline constexpr const char* header_long_reference = "Zpd-Long-Reference";  // 0 (or nothing) or 1
inline constexpr const char* header_expires = "Zpd-Expires";                // seconds since 1970; 0 or nothing: never
inline constexpr const char* header_reply = "Zpd-Reply";                    // a subject that gets the results, too
// Header of a received card, whose octets are the message.
inline constexpr const char* header_card = "Zpd-Card";  // its JSON, in ASCII

/// What becomes of a card, as the last part of a result's subject.
enum class result_t : uint8_t { queued, sent, aside, cancelled };
const char* words_of(result_t result);

class names_t {
  public:
    explicit names_t(std::string group) : group_(std::move(group)) {}

    const std::string& group() const { return group_; }

    /// The work queue. A card's id is its sequence number there.
    std::string cards() const { return "ZPD-" + group_ + "-cards"; }
    /// Results, received cards and what happens to modems. An event's id is its sequence number there.
    std::string events() const { return "ZPD-" + group_ + "-events"; }
    /// The modems that are there.
    std::string modems() const { return "ZPD-" + group_ + "-modems"; }

    std::string send(std::string_view from) const;  // from any of the group when empty, or the phone with this number
    std::string all_sent() const { return prefix() + "send.>"; }
    /// Of the work queue: those of the same phone.
    static std::string consumer(std::string_view from);
    /// Of those with this subject, which `send` has made.
    static std::string consumer_of_subject(std::string_view subject);

    std::string result(uint64_t id, result_t result) const;
    std::string results_of(uint64_t id) const { return prefix() + "result." + std::to_string(id) + ".*"; }
    std::string results(result_t result) const { return prefix() + "result.*." + words_of(result); }
    std::string all_results() const { return prefix() + "result.>"; }
    std::string received(std::string_view modem) const { return prefix() + "received." + std::string(modem); }
    std::string all_received() const { return prefix() + "received.>"; }
    std::string modem(std::string_view modem) const { return prefix() + "modem." + std::string(modem); }
    std::string all_modems() const { return prefix() + "modem.>"; }

    std::string all() const { return prefix() + ">"; }

    /// Asks whoever has a card in its outbox: {"id":N}.
    std::string order(std::string_view what) const { return prefix() + "order." + std::string(what); }

  private:
    std::string prefix() const { return "zpd." + group_ + "."; }
    const std::string group_;
};

/// A modem's key: the machine's and the device's name, each of letters, digits, "-" and "_", others as "_".
std::string modem_key(std::string_view machine, std::string_view device);

/// Of a group's streams.
struct layout_t {
    int64_t replicas = 1;
    std::chrono::seconds ack_wait{30};  // what is not reported in progress for so long is given to another
    int64_t most_cards = 1'000'000;     // that wait; more are refused
};
/// Makes what is not there, or makes all so when `layout` is given; then cards that were acknowledged, and are back
/// after a server was killed, go, too: nobody is given them, but they count as waiting.
client::answer_t<client::done_t> make(nats::connection_t& connection, const names_t& names,
                                      const std::optional<layout_t>& layout);
/// The consumer of the cards that the phone with this number is to send; of all others when it is empty. Made if need
/// be; how long a card may go without a report is in it.
client::answer_t<nats::consumer_t> consumer_of(nats::connection_t& connection, const names_t& names,
                                               const std::string& from);

}  // namespace fleet
