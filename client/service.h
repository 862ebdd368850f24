/// What answers for cards, beside the driver's own control codes: the service of one phone (client_t), or a fleet of
/// them. One request at a time; not for use by several threads at once. Texts are JSON objects, as docs/json.md shows
/// them. Failures are answers: a request that is refused has a code of device/service_requests.h; with
/// obstacle_t::no_answer it may be made again when what answers is back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "client/errors.h"
#include "device/service_requests.h"

namespace client {

using device::error_full;
using device::error_not_found;
using device::error_not_now;
using device::error_not_written;
using device::error_value;
using device::longest_wait;

struct outgoing_card_t {
    std::string_view octets;
    bool is_utf8 = true;          // cut between characters only
    bool long_reference = false;  // 16-bit concatenation reference
};

/// A card for the outbox.
struct handed_in_card_t {
    outgoing_card_t card;
    std::string_view number;
    std::string_view file;       // its name, for people
    uint64_t expires = 0;        // seconds since 1970; 0 for never
    std::string_view token;      // one that was handed in with this token is not handed in again; may be empty
    std::string_view from = {};  // the number of the phone that is to send it; empty for any
    uint32_t lease = 0;          // seconds that it holds, to be renewed; 0 for a card that needs none
};

class service_t {
  public:
    virtual ~service_t() = default;

    /// What it does, and who is there.
    virtual answer_t<std::string> service_status() = 0;

    /// Hands in a card, which is kept until it is sent once this is answered: with the message.
    virtual answer_t<std::string> outbox_add(const handed_in_card_t& card) = 0;
    /// The messages with greater ids, the lowest first, as many as fit: those that are not sent, or all that are known.
    virtual answer_t<std::string> outbox_list(uint64_t after, bool all) = 0;
    /// The message when its version is another, or after that many milliseconds, at most `longest_wait`.
    virtual answer_t<std::string> outbox_watch(uint64_t id, uint64_t version, uint32_t milliseconds) = 0;
    /// The message, which is given up; one that is over is left as it is.
    virtual answer_t<std::string> outbox_cancel(uint64_t id) = 0;
    /// The message that was set aside, or waits for its number, and is to go at once; `expires` as in a card.
    virtual answer_t<std::string> outbox_retry(uint64_t id, uint64_t expires) = 0;

    /// Those with greater ids and not before the time `since`, the oldest first; waits while there is none.
    virtual answer_t<std::string> events(uint64_t after, uint64_t since, uint32_t milliseconds) = 0;

    /// Those with greater numbers, as many as fit.
    virtual answer_t<std::string> inbox_list(uint64_t after) = 0;
    /// All octets of a received card.
    virtual answer_t<std::string> inbox_octets(uint64_t number) = 0;
    virtual answer_t<done_t> inbox_remove(uint64_t number) = 0;

  protected:
    service_t() = default;
    service_t(const service_t&) = default;
    service_t(service_t&&) = default;
    service_t& operator=(const service_t&) = default;
    service_t& operator=(service_t&&) = default;
};

}  // namespace client
