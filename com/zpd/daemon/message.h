/// The records of the message database: one outgoing message and its datagrams.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "com/miscio/octets.h"
#include "com/miscio/text.h"
#include "com/zpd/zpd_ioctl.h"

class abstract_state_t;
struct message_t;

/// One short message of an outgoing message, as it moves through the state machine.
struct datagram_t {
    /// Appends itself to the message, which owns it from then on.
    datagram_t(message_t& owner, uint8_t position, octet_string_t header, octet_view_t slice, wide_view_t number);
    datagram_t(const datagram_t&) = delete;
    datagram_t& operator=(const datagram_t&) = delete;

    message_t* const message;
    const uint8_t ordinal;     // from 0
    const octet_string_t udh;  // with its length octet, which counts itself
    const octet_view_t data;   // of the message's card
    const wide_view_t phone;   // the message's
    abstract_state_t* state = nullptr;
    uint32_t reference = 0;  // a reserved word of the status reply: always 0
    int32_t status = -1;     // ZPD_STATUS_*
    // Never changed, deliberately: state RILLED files every datagram under the key 0. Results find their datagram
    // through the request object.
    uint32_t ril_request_id = 0;
    bool aborted = false;  // another datagram of the message failed: not to be submitted any more
};

/// One outgoing message. Entries of `datagrams` become null as the datagrams are released; the vector keeps its length.
struct message_t {
    message_t(uint32_t message_id, wide_string_t number, octet_string_t vcard)
        : id(message_id), phone(std::move(number)), card(std::move(vcard)) {}
    message_t(const message_t&) = delete;
    message_t& operator=(const message_t&) = delete;

    std::vector<std::unique_ptr<datagram_t>> datagrams;
    const uint32_t id;
    const wide_string_t phone;  // its datagrams have views of this
    const octet_string_t card;  // and slices of this
    bool closed = false;
    uint32_t datagram_count = 0;  // live datagrams
};
