/// Messages that streams store many at once: the way to the server and back counts once for them all.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "relay/nats.h"

namespace nats {

/// For one thread.
class batch_t {
  public:
    /// The connection outlives it.
    explicit batch_t(connection_t& connection) : connection_(connection) {}

    /// One more. Headers may be added until `store`. With a token, what is stored under it already is not stored again.
    answer_t<message_t*> add(const std::string& subject, std::string_view data, const std::string& token);
    /// Has those that were added stored in their order; none is here then. After a failure any of them may be stored.
    answer_t<done_t> store();

  private:
    answer_t<done_t> listen();
    answer_t<done_t> wait_for_answers(size_t count);

    connection_t& connection_;
    std::string inbox_;
    std::optional<subscription_t> answers_;  // below it
    std::deque<message_t> messages_;
    uint64_t added_ = 0;  // so far: each message's answer comes under its number
};

}  // namespace nats
