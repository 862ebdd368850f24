/// Watches a message on its way through the driver, until each of its datagrams is sent or given up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/end_signals.h"
#include "cli/output.h"
#include "client/client.h"

/// The datagrams of a message by their status.
struct tally_t {
    size_t total = 0;
    size_t queued = 0;
    size_t submitted = 0;
    size_t failed = 0;
    size_t deferred = 0;
    size_t sent = 0;  // also those of a closed message that are done with

    bool is_over() const { return queued + submitted == 0; }
    bool all_sent() const { return sent == total; }
    bool operator==(const tally_t&) const = default;
};
tally_t tally_of(const std::vector<uint32_t>& statuses);
/// "2 of 5 datagrams sent, 1 with the radio, 2 queued"
std::string describe(const tally_t& tally);

struct delivery_t {
    enum class end_t {
        over,         // each datagram is sent or given up: the tally tells
        interrupted,  // by a signal; the message stays with the driver
        lost,         // the driver does not answer for it any more: `error` tells
    };
    end_t end = end_t::over;
    tally_t tally;
    std::string error;
};

/// Shows the progress, and what it waits for, each line begun with `label`. A message that the radio refuses again and
/// again is retried by the driver for ever: so it ends on a signal, too.
delivery_t watch_delivery(client::client_t& client, uint32_t id, const std::string& label, progress_t& progress,
                          const base::end_signals_t& signals);
