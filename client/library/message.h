/// zpd_message_t: a message of the outbox, as the service tells of it.
#pragma once

#include <zpd/client.h>

#include <memory>
#include <string>
#include <vector>

#include "client/library/values.h"

struct zpd_message {
    uint64_t id = 0;
    uint64_t version = 0;
    int state = ZPD_MESSAGE_OTHER;
    std::string state_text;
    std::string number;
    std::string file;
    uint64_t size = 0;
    uint32_t datagrams = 0;
    uint32_t sent = 0;
    uint64_t handed_in = 0;
    uint64_t expires = 0;
    uint64_t next_try = 0;
    std::string reason;
    std::string advice;
    std::string waits_for;
    std::string json;

    bool is_over() const {
        return state == ZPD_MESSAGE_SENT || state == ZPD_MESSAGE_CANCELLED || state == ZPD_MESSAGE_SET_ASIDE;
    }
};

struct zpd_messages {
    std::vector<zpd_message> items;
};

namespace library {

using message_t = std::unique_ptr<zpd_message>;

zpd_message message_of(const json_t& object);
/// Of the answer to a request.
client::answer_t<message_t> read_message(const client::answer_t<std::string>& answer);

}  // namespace library
