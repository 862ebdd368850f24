/// The NATS client library, with objects that own what they have and failures in words. A connection comes back by
/// itself when its server does; meanwhile calls fail, after `longest_call` at the latest. Any thread, but for
/// `subscription_t` and `pull_t`, each of which is one thread's at a time.
#pragma once

#include <nats/nats.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/errors.h"

namespace nats {

using client::answer_t;
using client::done_t;
using std::chrono::milliseconds;

inline constexpr milliseconds longest_call{5000};

/// Calls `destroy` on what the library gave.
template <auto destroy>
struct destroy_t {
    template <typename object_t>
    void operator()(object_t* object) const {
        static_cast<void>(destroy(object));
    }
};
template <typename object_t, auto destroy>
using own_t = std::unique_ptr<object_t, destroy_t<destroy>>;

/// How a server, or any of a cluster, is reached.
struct server_t {
    std::string url;          // nats://[user:password@]host[:port][,…], or tls://…, which asks for TLS
    std::string credentials;  // the following are names of files; empty for none
    std::string ca;
    std::string certificate;
    std::string key;
};
/// What the environment says of those that are empty: NATS_CREDS, NATS_CA, NATS_CERT, NATS_KEY, the names that the
/// tools of NATS use.
server_t with_environment(server_t server);
/// Without passwords, for people.
std::string shown_url(std::string_view url);

class message_t {
  public:
    /// The library's own refers to what gave it, when it is acknowledged.
    explicit message_t(natsMsg* message, std::shared_ptr<natsSubscription> giver = nullptr)
        : giver_(std::move(giver)), message_(message) {}
    message_t(const std::string& subject, std::string_view data, const std::string& reply = "");
    /// One that a stream has, at this place.
    message_t(const std::string& subject, std::string_view data, uint64_t sequence) : message_t(subject, data) {
        sequence_ = sequence;
    }

    std::string subject() const { return natsMsg_GetSubject(message_.get()); }
    /// Where an answer goes; empty where none is wanted.
    std::string reply() const {
        const char* const address = natsMsg_GetReply(message_.get());
        return address != nullptr ? address : "";
    }
    std::string_view data() const;
    /// Empty where there is none.
    std::string header(const char* name) const;
    /// Control characters become spaces; nothing but spaces is no header.
    void set_header(const char* name, std::string value);

    // Of one that a stream keeps.
    uint64_t sequence() const;
    int64_t time() const;  // seconds since 1970
    /// How often a consumer was given it, this time included; 0 for one that came otherwise.
    uint64_t deliveries() const;

    // Of one that a consumer gave: what becomes of it. Whether the server hears of it is not known.
    void acknowledge() const { static_cast<void>(natsMsg_Ack(message_.get(), nullptr)); }
    /// For another consumer, after this time.
    void give_back(milliseconds delay) const;
    void report_in_progress() const { static_cast<void>(natsMsg_InProgress(message_.get(), nullptr)); }

    natsMsg* get() const { return message_.get(); }

  private:
    std::shared_ptr<natsSubscription> giver_;
    own_t<natsMsg, natsMsg_Destroy> message_;
    uint64_t sequence_ = 0;  // 0: what the library knows
};

/// Messages as they come, or those of a stream in their order.
class subscription_t {
  public:
    explicit subscription_t(natsSubscription* subscription) : subscription_(subscription) {}
    /// None when there is none in this time; a failure when there will be none.
    answer_t<std::optional<message_t>> next(milliseconds wait);

  private:
    own_t<natsSubscription, natsSubscription_Destroy> subscription_;
};

/// A consumer of a work queue, which gives as many as are asked for.
class pull_t {
  public:
    explicit pull_t(natsSubscription* subscription) : subscription_(subscription, natsSubscription_Destroy) {}
    /// At most `most`; waits until there are so many, or the time is over; with no time takes what there is. None is no
    /// failure.
    answer_t<std::vector<message_t>> take(int most, milliseconds wait);

  private:
    std::shared_ptr<natsSubscription> subscription_;  // with the messages that it gave
};

struct stored_t {
    uint64_t sequence = 0;
    bool known = false;  // one with the same token had been stored, under that number
};

struct stream_t {
    uint64_t messages = 0;
    uint64_t first = 0;  // sequence
    uint64_t last = 0;
    int64_t created = 0;  // nanoseconds since 1970
};

struct consumer_t {
    std::string subject;        // of the messages that it gives
    uint64_t waiting = 0;       // that nobody was given
    uint64_t taken = 0;         // given to somebody, and not acknowledged
    uint64_t acknowledged = 0;  // all up to this sequence are
    milliseconds ack_wait{};
};

/// A key of a bucket, and what it holds; without a value it was deleted, or is too old.
struct entry_t {
    std::string key;
    std::optional<std::string> value;
};

/// What is told of a bucket's keys: at first all that there are.
class watch_t {
  public:
    explicit watch_t(kvWatcher* watcher) : watcher_(watcher) {}
    /// None when there is none in this time, or those that there were have all been told (once).
    answer_t<std::optional<entry_t>> next(milliseconds wait, bool* all_told);

  private:
    own_t<kvWatcher, kvWatcher_Destroy> watcher_;
};

class connection_t {
  public:
    /// `wait`: one that cannot be reached yet is no failure, and goes on being tried. `name` is for the server's
    /// people.
    static answer_t<std::unique_ptr<connection_t>> open(const server_t& server, const std::string& name, bool wait);
    ~connection_t();
    connection_t(const connection_t&) = delete;
    connection_t& operator=(const connection_t&) = delete;

    bool is_connected() const { return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED; }
    /// Of the server, without a password.
    std::string url() const;
    /// Why the last thing that nobody waited for was refused, such as a publication without permission; told once.
    std::string last_refusal() const;

    // To whom it concerns.
    answer_t<done_t> publish(const std::string& subject, std::string_view data) {
        return publish(message_t(subject, data));
    }
    answer_t<done_t> publish(const message_t& message);
    /// The first answer. With nobody there a failure at once.
    answer_t<message_t> request(const std::string& subject, std::string_view data, milliseconds wait);
    answer_t<subscription_t> subscribe(const std::string& subject);
    /// A subject that nobody else has, for answers, which go to it or below it.
    answer_t<std::string> new_inbox() const;
    /// The server has read what was published before; consumers act on it in their own time.
    answer_t<done_t> flush();

    // Streams.
    /// With a token, one that is stored under it already is not stored again. Several at once: relay/batch.h.
    answer_t<stored_t> store(const message_t& message, const std::string& token);
    /// The first one with this sequence or a greater one; none when there is none.
    answer_t<std::optional<message_t>> next_in(const std::string& stream, const std::string& subject,
                                               uint64_t sequence);
    answer_t<std::optional<message_t>> last_in(const std::string& stream, const std::string& subject);
    /// All from this sequence on, and those that come, in order.
    answer_t<subscription_t> follow(const std::string& stream, const std::string& subject, uint64_t sequence);
    /// False when it is not there.
    answer_t<bool> remove(const std::string& stream, uint64_t sequence);
    answer_t<std::optional<stream_t>> stream(const std::string& name);
    /// How many messages it has of each subject that the filter lets through.
    answer_t<std::map<std::string, uint64_t>> subjects(const std::string& stream, const std::string& filter);
    /// Removes those of a subject up to this sequence, which is at least 1.
    answer_t<done_t> purge(const std::string& stream, const std::string& subject, uint64_t last);
    /// Makes it, or makes it so.
    answer_t<done_t> make_stream(jsStreamConfig config);

    // Consumers of work queues.
    answer_t<std::optional<consumer_t>> consumer(const std::string& stream, const std::string& name);
    answer_t<std::vector<consumer_t>> consumers(const std::string& stream);
    answer_t<done_t> make_consumer(const std::string& stream, jsConsumerConfig config);
    answer_t<pull_t> pull(const std::string& stream, const std::string& consumer);
    /// Reports a message as in progress, and waits until the server has taken this report and those before it.
    answer_t<done_t> confirm_progress(const message_t& message);

    // Buckets of keys and values.
    answer_t<done_t> put(const std::string& bucket, const std::string& key, const std::string& value);
    answer_t<done_t> drop(const std::string& bucket, const std::string& key);
    answer_t<std::vector<entry_t>> entries(const std::string& bucket);
    answer_t<watch_t> watch(const std::string& bucket);

  private:
    using bucket_t = own_t<kvStore, kvStore_Destroy>;
    connection_t() = default;
    answer_t<bucket_t> bucket(const std::string& name);
    answer_t<std::optional<message_t>> get_without_headers(const std::string& stream, const std::string& which,
                                                           const client::failure_t& failure);

    std::string inbox_prefix_;  // empty for the usual one
    own_t<natsConnection, natsConnection_Destroy> connection_;
    own_t<jsCtx, jsCtx_Destroy> stream_;
};

}  // namespace nats
